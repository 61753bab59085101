// The Linux URL session: libcurl's multi interface driven by one background worker thread.
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <set>
#include <thread>
#include <unordered_map>

#include <curl/curl.h>

#include "CurlCookieJar.h"
#include "LinuxProviders.h"
#include "ResendRule.h"
#include "SessionFields.h"
#include "platform/UrlSession.h"
#include "platform/internal/HttpText.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr long kMaxConnectionsPerHost = 8;
constexpr long kMaxTotalConnections = 32;
// Tasks beyond this many wait in our own queue, so sockets and buffers stay bounded.
constexpr std::size_t kMaxActiveTransfers = 64;
constexpr int kMaxRedirects = 16;
constexpr double kDefaultTimeoutMs = 60'000;
constexpr double kMaxTimeoutMs = 7 * 24 * 3600 * 1000.0;
// The worker's longest sleep when nothing runs; new tasks wake it at once anyway.
constexpr int kIdlePollMs = 10'000;

// Every body is held whole until its completion runs, up to 8 at a time per host: without these
// guards a slow or hostile service could make the host's memory grow without bound.
std::atomic<std::size_t> maximumBodyBytes{URLSessionLimits{}.maximumBodyBytes};
std::atomic<std::size_t> maximumHeaderBytes{URLSessionLimits{}.maximumHeaderBytes};

Mutex networkMutex;
URLSessionNetwork networkSettings ZELNORA_GUARDED_BY(networkMutex);

using Fields = std::vector<std::pair<std::string, std::string>>;

using http::equalsIgnoringCase;

std::string_view trimBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::string lowercaseScheme(const Url& url) {
  const auto& text = url.absoluteString();
  std::string scheme = text.substr(0, text.find(':'));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), http::asciiLower);
  return scheme;
}

bool isHttpScheme(const std::string& scheme) { return scheme == "http" || scheme == "https"; }

// ---- Request headers --------------------------------------------------------------------------

// An HTTP token, whatever the host's locale: this also keeps CR, LF, NUL, ':' and blanks out of
// names and methods.
using http::isSendableValue;
using http::isToken;

// The transport frames every message itself: a copy from the request could contradict it (a
// redirected GET still declaring the POST's length, a second length) or name another host.
bool isFramingHeader(std::string_view name) {
  return equalsIgnoringCase(name, "Host") || equalsIgnoringCase(name, "Content-Length") ||
         equalsIgnoringCase(name, "Transfer-Encoding");
}

bool isSendableField(const std::string& name, const std::string& value) {
  return isToken(name) && isSendableValue(value) && !isFramingHeader(name);
}

// The headers a redirect that drops the body leaves out with it.
bool isBodyHeader(std::string_view name) {
  return equalsIgnoringCase(name.substr(0, 8), "Content-") || isFramingHeader(name);
}

// The request's own fields, then the session's Accept-Language unless the request has its own.
// `sendsUserAgent` tells whether the request's own User-Agent replaces the session's.
curl_slist* buildHeaderList(const HeaderFields& fields, bool& sendsUserAgent) {
  curl_slist* list = nullptr;
  bool hasExpect = false;
  bool hasLanguage = false;
  for (const auto& [name, value] : fields.fields()) {
    if (!isSendableField(name, value)) continue;
    hasExpect = hasExpect || equalsIgnoringCase(name, "Expect");
    hasLanguage = hasLanguage || equalsIgnoringCase(name, "Accept-Language");
    sendsUserAgent = sendsUserAgent || equalsIgnoringCase(name, "User-Agent");
    // "Name;" is curl's way to send a header with an empty value ("Name:" would remove it).
    std::string line = name;
    line.append(value.empty() ? ";" : ": ").append(value);
    list = curl_slist_append(list, line.c_str());
  }
  if (!hasLanguage) {
    const std::string line = "Accept-Language: " + detail::processSessionFields().acceptLanguage;
    list = curl_slist_append(list, line.c_str());
  }
  // Without this curl waits for "100 Continue" before sending larger bodies.
  if (!hasExpect) list = curl_slist_append(list, "Expect:");
  return list;
}

// ---- Response headers -------------------------------------------------------------------------

// The fields of the answer being received, in arrival order, a repeated field joined with ", ".
// Each line costs the same however many fields came before it: the network thread serves every
// exchange, so one answer with many fields must not stall the others.
class ResponseHeaderFields {
 public:
  void addLine(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line.substr(0, 5) == "HTTP/") {  // a new response begins (1xx): only the last one counts
      fields_.clear();
      indexByName_.clear();
      return;
    }
    if (line.empty()) return;
    if ((line.front() == ' ' || line.front() == '\t') && !fields_.empty()) {
      fields_.back().second.append(" ").append(trimBlanks(line));
      return;
    }
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const auto name = trimBlanks(line.substr(0, colon));
    const auto value = trimBlanks(line.substr(colon + 1));
    std::string key(name);
    std::transform(key.begin(), key.end(), key.begin(), http::asciiLower);
    const auto [entry, added] = indexByName_.try_emplace(std::move(key), fields_.size());
    if (added) {
      fields_.emplace_back(std::string(name), std::string(value));
    } else {
      fields_[entry->second].second.append(", ").append(value);
    }
  }

  Fields take() { return std::move(fields_); }

 private:
  Fields fields_;
  std::unordered_map<std::string, std::size_t> indexByName_;  // lower-case name -> fields_ index
};

// ---- Errors -------------------------------------------------------------------------------------

std::int64_t urlErrorCode(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT: return kURLErrorTimedOut;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY: return kURLErrorCannotConnectToHost;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return kURLErrorCannotFindHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE: return kURLErrorNetworkConnectionLost;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE: return kURLErrorSecureConnectionFailed;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH: return kURLErrorServerCertificateUntrusted;
    case CURLE_UNSUPPORTED_PROTOCOL:
      // The scheme was checked before the transfer began, so this is an answer curl cannot read
      // (HTTP/0.9 or garbage instead of a status line) or a redirect to a scheme we do not follow.
      return kURLErrorBadServerResponse;
    case CURLE_WEIRD_SERVER_REPLY: return kURLErrorBadServerResponse;
    case CURLE_URL_MALFORMAT: return kURLErrorBadURL;
    case CURLE_BAD_CONTENT_ENCODING: return kURLErrorCannotDecodeContentData;
    default: return kURLErrorUnknown;
  }
}

Error transportError(std::int64_t code, std::string description) {
  return Error{kURLErrorDomain, code, std::move(description)};
}

long timeoutMilliseconds(std::chrono::duration<double> interval) {
  double ms = interval.count() * 1000.0;
  if (!std::isfinite(ms) || ms <= 0) ms = kDefaultTimeoutMs;
  return std::max(1L, static_cast<long>(std::min(ms, kMaxTimeoutMs)));
}

bool isRedirectStatus(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// A private trust store, as OpenSSL-based tools take it: a test CA or a corporate root is trusted
// for this process only, without touching the machine's store.
void configureTrustStore(CURL* easy) {
  const char* file = std::getenv("SSL_CERT_FILE");
  const char* directory = std::getenv("SSL_CERT_DIR");
  if (file != nullptr && *file != '\0') curl_easy_setopt(easy, CURLOPT_CAINFO, file);
  if (directory != nullptr && *directory != '\0') curl_easy_setopt(easy, CURLOPT_CAPATH, directory);
}

void ignoreSigpipeUnlessHandled() {
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    (void)signal(SIGPIPE, SIG_IGN);
  }
}

// The worker thread's memory of the GOAWAYs servers sent, shared by every transfer's trace.
detail::GoawayLedger& goawayLedger() {
  static detail::GoawayLedger ledger;
  return ledger;
}

// ---- One exchange -------------------------------------------------------------------------------

// One request of a task, from dataTask to its completion (or to the next request when it is
// redirected); while curl runs it, the easy handle points back to it.
struct Transfer {
  Transfer(std::uint64_t id, URLRequest r, DataTaskCompletion c, int redirectsSoFar = 0)
      : ticket(id), request(std::move(r)), completion(std::move(c)), redirects(redirectsSoFar) {}
  ~Transfer() {
    if (easy != nullptr) curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  void noteActivity() { lastActivity = SteadyClock::now(); }

  std::uint64_t ticket;
  URLRequest request;
  DataTaskCompletion completion;
  int redirects;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  char errorText[CURL_ERROR_SIZE] = {};
  std::size_t bodyLimit = 0;
  std::size_t headerLimit = 0;
  SteadyClock::duration idleLimit{};
  SteadyClock::time_point lastActivity;
  curl_off_t uploaded = 0;
  Bytes body;
  ResponseHeaderFields responseHeaders;
  std::size_t responseHeaderBytes = 0;
  bool headerBlockOpen = false;  // a status line arrived, the blank line after it not yet
  bool setsCookies = false;
  bool headersTooLarge = false;
  bool bodyTooLarge = false;
  bool resendRefused = false;
  bool resent = false;  // this is the one resend a request may get
  detail::AttemptTrace trace{goawayLedger()};
};

// Grows the buffer geometrically as insertion would, but never past the limit: a body just under
// it then holds at most the limit, where a doubling could reserve nearly twice as much.
void reserveWithinLimit(Bytes& body, std::size_t needed, std::size_t limit) {
  if (needed <= body.capacity()) return;
  body.reserve(std::min(std::max(needed, 2 * body.capacity()), limit));
}

std::size_t onBodyData(char* data, std::size_t size, std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  transfer.noteActivity();
  // Catches what a declared Content-Length cannot: chunked and close-delimited bodies (curl checks
  // only a declared size against CURLOPT_MAXFILESIZE_LARGE).
  if (length > transfer.bodyLimit - transfer.body.size()) {
    transfer.bodyTooLarge = true;
    return 0;  // a short count aborts the transfer
  }
  reserveWithinLimit(transfer.body, transfer.body.size() + length, transfer.bodyLimit);
  transfer.body.insert(transfer.body.end(), data, data + length);
  return length;
}

std::size_t onHeaderLine(char* data, std::size_t size, std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  transfer.noteActivity();
  transfer.responseHeaderBytes += length;
  if (transfer.responseHeaderBytes > transfer.headerLimit) {
    transfer.headersTooLarge = true;
    return 0;  // aborts the transfer
  }
  const std::string_view line(data, length);
  if (line.starts_with("HTTP/")) transfer.headerBlockOpen = true;
  if (line == "\r\n" || line == "\n") transfer.headerBlockOpen = false;
  if (equalsIgnoringCase(line.substr(0, 11), "Set-Cookie:")) transfer.setsCookies = true;
  transfer.responseHeaders.addLine(line);
  return length;
}

// Request bytes going out count as activity for the idle time-out, as answer bytes do.
int onProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded) {
  auto& transfer = *static_cast<Transfer*>(user);
  if (uploaded != transfer.uploaded) {
    transfer.uploaded = uploaded;
    transfer.noteActivity();
  }
  return 0;
}

// libcurl sends a request again on another connection when a reused one died before any answer
// byte came. The peer may have acted on the first copy (a report recorded twice), so once bytes
// of this request went out (a proxy's CONNECT and TLS handshakes are not the request's) curl may
// not resend it; the session decides (shouldResend) when the transfer has failed. A request that
// could not be written at all may go again at once. Each easy handle sends one request (a
// redirect is a new transfer), so any request after bytes went out would be such a resend.
int onBeforeRequest(void* user, char*, char*, int, int) {
  auto& transfer = *static_cast<Transfer*>(user);
  if (!transfer.trace.beginAttempt()) {
    transfer.resendRefused = true;
    return CURL_PREREQFUNC_ABORT;
  }
  transfer.noteActivity();  // connected
  return CURL_PREREQFUNC_OK;
}

// libcurl's trace is the only place that says whether the request's own bytes went out, which
// connection and HTTP/2 stream carried it, and what GOAWAY or REFUSED_STREAM the server sent.
int onTrace(CURL*, curl_infotype type, char* data, std::size_t size, void* user) {
  auto& trace = static_cast<Transfer*>(user)->trace;
  const std::string_view text(data, size);
  switch (type) {
    case CURLINFO_TEXT: trace.onText(text); break;
    case CURLINFO_HEADER_OUT: trace.onHeaderOut(text); break;
    case CURLINFO_DATA_OUT: trace.onDataOut(); break;
    case CURLINFO_HEADER_IN:
    case CURLINFO_DATA_IN: trace.onAnswerIn(); break;
    default: break;
  }
  return 0;
}

void configureTrace(CURL* easy, Transfer& transfer) {
  curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, onTrace);
  curl_easy_setopt(easy, CURLOPT_DEBUGDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, onBeforeRequest);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, &transfer);
  if (transfer.resent) curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);
}

// As strict as the phone's App Transport Security for https (plain http stays possible); HTTP/2
// through ALPN, streams multiplexed on one connection per host.
void configureTransport(CURL* easy, bool sendsUserAgent) {
  const auto& fields = detail::processSessionFields();
  if (!sendsUserAgent) curl_easy_setopt(easy, CURLOPT_USERAGENT, fields.userAgent.c_str());
  // Exactly this list on the wire, and answers in these encodings decoded before the body limit.
  if (!fields.acceptEncoding.empty()) {
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, fields.acceptEncoding.c_str());
  }
  curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  curl_easy_setopt(easy, CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);  // a proxy's answer is not ours
  const URLSessionNetwork network = urlSessionNetwork();
  if (network.proxy) curl_easy_setopt(easy, CURLOPT_PROXY, network.proxy->c_str());
  if (network.noProxy) curl_easy_setopt(easy, CURLOPT_NOPROXY, network.noProxy->c_str());
}

// Sets the method and the body. POST and PUT always carry a body (maybe empty); other methods
// carry one when the request holds bytes, sent exactly as given.
void configureMethodAndBody(CURL* easy, Transfer& transfer) {
  const std::string& method = transfer.request.httpMethod;
  if (method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    return;
  }
  const auto& body = transfer.request.httpBody;
  const bool hasBytes = body && !body->empty();
  const bool sendsBody = hasBytes || method == "POST" || method == "PUT";
  if (sendsBody) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(hasBytes ? body->size() : 0));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS,
                     hasBytes ? reinterpret_cast<const char*>(body->data()) : "");
  }
  const bool curlDefault = sendsBody ? method == "POST" : method == "GET";
  if (!curlDefault) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
}

// The phone's request time-out is an idle time-out: the exchange fails when no data has flowed
// for that long, however long a steady one takes. The worker checks it (CurlUrlSession::
// expireIdle); curl's own connect time-out only gives a failed connect its proper error.
void configureTimeOut(CURL* easy, Transfer& transfer) {
  const long ms = timeoutMilliseconds(transfer.request.timeoutInterval);
  transfer.idleLimit = std::chrono::milliseconds(ms);
  transfer.noteActivity();
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, ms);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, onProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &transfer);
}

// Prepares the easy handle; an error when the request cannot be sent at all.
std::optional<Error> prepare(Transfer& transfer) {
  const std::string scheme = lowercaseScheme(transfer.request.url);
  if (!isHttpScheme(scheme) && scheme != "file") {
    return transportError(kURLErrorUnsupportedURL, "unsupported URL");
  }
  if (transfer.request.httpMethod.empty()) transfer.request.httpMethod = "GET";
  if (!isToken(transfer.request.httpMethod)) {
    return transportError(kURLErrorUnknown, "invalid HTTP method");
  }
  CURL* easy = transfer.easy = curl_easy_init();
  if (easy == nullptr) return transportError(kURLErrorUnknown, "cannot create a transfer");
  bool sendsUserAgent = false;
  transfer.headers = buildHeaderList(transfer.request.allHTTPHeaderFields, sendsUserAgent);
  transfer.bodyLimit = maximumBodyBytes.load();
  transfer.headerLimit = maximumHeaderBytes.load();

  curl_easy_setopt(easy, CURLOPT_URL, transfer.request.url.absoluteString().c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.errorText);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBodyData);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeaderLine);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.headers);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
  configureTrace(easy, transfer);
  configureTransport(easy, sendsUserAgent);
  configureTrustStore(easy);
  configureTimeOut(easy, transfer);
  configureMethodAndBody(easy, transfer);
  // A body too long by its declared Content-Length fails before any of it is read. Not for HEAD:
  // its Content-Length describes a body that never comes.
  if (transfer.request.httpMethod != "HEAD") {
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(transfer.bodyLimit));
  }
  return std::nullopt;
}

URLResponse responseOf(Transfer& transfer) {
  URLResponse response;
  response.url = transfer.request.url.absoluteString();  // the text it was given, not curl's
  if (isHttpScheme(lowercaseScheme(transfer.request.url))) {
    long status = 0;
    curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
    response.statusCode = static_cast<int>(status);
    response.headerFields = transfer.responseHeaders.take();
  }
  return response;
}

// libcurl refuses more than 300 KB of headers per answer and 100 KB per line by itself; while the
// header block is still arriving, its "receive error" and "out of memory" come from there.
bool isHeaderBlockTooLarge(const Transfer& transfer, CURLcode result) {
  if (transfer.headersTooLarge) return true;
  if (!transfer.headerBlockOpen) return false;
  return result == CURLE_OUT_OF_MEMORY ||
         (result == CURLE_RECV_ERROR &&
          std::string_view(transfer.errorText).find("headers") != std::string_view::npos);
}

Error errorOf(const Transfer& transfer, CURLcode result) {
  if (isHeaderBlockTooLarge(transfer, result)) {
    return transportError(kURLErrorBadServerResponse, "response header block too large");
  }
  // Both come from the body limit: curl's CURLE_FILESIZE_EXCEEDED for a declared size, and the
  // CURLE_WRITE_ERROR that our short count in onBodyData causes.
  if (transfer.bodyTooLarge || result == CURLE_FILESIZE_EXCEEDED) {
    return transportError(kURLErrorDataLengthExceedsMaximum, "resource exceeds maximum size");
  }
  if (transfer.resendRefused) {
    return transportError(kURLErrorNetworkConnectionLost, "The network connection was lost.");
  }
  long proxyStatus = 0;
  curl_easy_getinfo(transfer.easy, CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
  if (proxyStatus == 407) {
    return transportError(kURLErrorUserAuthenticationRequired, "proxy authentication required");
  }
  if (proxyStatus >= 300) {
    return transportError(kURLErrorCannotConnectToHost,
                          "the proxy refused the tunnel (" + std::to_string(proxyStatus) + ")");
  }
  std::string description = transfer.errorText[0] != '\0' ? std::string(transfer.errorText)
                                                          : std::string(curl_easy_strerror(result));
  return transportError(urlErrorCode(result), std::move(description));
}

// A connection that broke under the request, as opposed to a guard, a time-out or a bad answer.
bool isConnectionLoss(const Transfer& transfer, CURLcode result) {
  if (transfer.resendRefused) return true;
  if (transfer.bodyTooLarge || transfer.headersTooLarge) return false;
  // libcurl 7.88 fails a request with CURLE_FAILED_INIT ("send: no filter connected") when the
  // connection it was given (a proxy's tunnel, seen with squid) was torn down before any byte of
  // it was written: a lost connection too, and one the server cannot have acted on.
  const bool unwrittenOnClosedConnection =
      result == CURLE_FAILED_INIT && !transfer.trace.requestWritten();
  return result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR || result == CURLE_GOT_NOTHING ||
         result == CURLE_HTTP2 || result == CURLE_HTTP2_STREAM || unwrittenOnClosedConnection;
}

bool resendsOnFreshConnection(const Transfer& transfer, CURLcode result) {
  detail::AttemptOutcome outcome = transfer.trace.outcome(isConnectionLoss(transfer, result));
  outcome.idempotentMethod = detail::isIdempotentMethod(transfer.request.httpMethod);
  outcome.alreadyResent = transfer.resent;
  return detail::shouldResend(outcome);
}

// The request that follows a redirect answer, as the phone's session makes it: 303, and 301 or
// 302 after a POST, become a GET without body or body headers (a HEAD stays a HEAD); 307, 308
// and the other methods keep everything.
URLRequest redirectedRequest(URLRequest request, Url target, long status) {
  request.url = std::move(target);
  const std::string& method = request.httpMethod;
  const bool becomesGet =
      method != "HEAD" && (status == 303 || (status <= 302 && method == "POST"));
  if (!becomesGet) return request;
  request.httpMethod = "GET";
  request.httpBody.reset();
  HeaderFields kept;
  for (const auto& [name, value] : request.allHTTPHeaderFields.fields()) {
    if (!isBodyHeader(name)) kept.addValue(value, name);
  }
  request.allHTTPHeaderFields = std::move(kept);
  return request;
}

// ---- The session --------------------------------------------------------------------------------

class CurlUrlSession final : public URLSession {
 public:
  CurlUrlSession() : multi_(createMulti()) {
    std::thread worker([this] { runWorker(); });
    workerId_ = worker.get_id();
    worker.detach();  // the session lives until the process ends
  }

  void dataTask(URLRequest request, DataTaskCompletion completion) override {
    {
      MutexLock lock(mutex_);
      const std::uint64_t ticket = nextTicket_++;
      unfinished_.insert(ticket);
      queued_.push_back(
          std::make_unique<Transfer>(ticket, std::move(request), std::move(completion)));
    }
    curl_multi_wakeup(multi_);
  }

  void post(std::function<void()> completion) override {
    {
      MutexLock lock(mutex_);
      const std::uint64_t ticket = nextTicket_++;
      unfinished_.insert(ticket);
      posted_.emplace_back(ticket, std::move(completion));
    }
    curl_multi_wakeup(multi_);
  }

  bool waitUntilIdle(std::chrono::milliseconds limit) override {
    const auto deadline = SteadyClock::now() + limit;
    MutexLock lock(mutex_);
    const std::uint64_t horizon = nextTicket_;
    // A completion waiting for its own task would wait forever.
    if (std::this_thread::get_id() == workerId_) return settledBefore(horizon);
    return waitUntil(settled_, mutex_, deadline,
                     [&]() ZELNORA_REQUIRES(mutex_) { return settledBefore(horizon); });
  }

 private:
  static CURLM* createMulti() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    ignoreSigpipeUnlessHandled();
    CURLM* multi = curl_multi_init();
    curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, kMaxConnectionsPerHost);
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, kMaxTotalConnections);
    return multi;
  }

  // Every task and posted completion with a ticket below `horizon` has finished.
  bool settledBefore(std::uint64_t horizon) const ZELNORA_REQUIRES(mutex_) {
    return unfinished_.empty() || *unfinished_.begin() >= horizon;
  }

  void runWorker() {
    for (;;) {
      runPosted();
      admitQueued();
      int running = 0;
      curl_multi_perform(multi_, &running);
      collectFinished();
      const int untilNextExpiry = expireIdle();
      if (!canAdmitMore()) curl_multi_poll(multi_, nullptr, 0, untilNextExpiry, nullptr);
    }
  }

  bool canAdmitMore() {
    MutexLock lock(mutex_);
    return !queued_.empty() && running_.size() < kMaxActiveTransfers;
  }

  void admitQueued() {
    std::vector<std::unique_ptr<Transfer>> admitted;
    {
      MutexLock lock(mutex_);
      while (!queued_.empty() && running_.size() + admitted.size() < kMaxActiveTransfers) {
        admitted.push_back(std::move(queued_.front()));
        queued_.pop_front();
      }
    }
    for (auto& transfer : admitted) start(std::move(transfer));
  }

  void start(std::unique_ptr<Transfer> transfer) {
    if (auto error = prepare(*transfer)) {
      finish(std::move(transfer), std::nullopt, std::nullopt, std::move(error));
      return;
    }
    cookies_.attach(transfer->easy);
    if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
      finish(std::move(transfer), std::nullopt, std::nullopt,
             transportError(kURLErrorUnknown, "cannot start the transfer"));
      return;
    }
    // Owned by the easy handle (CURLOPT_PRIVATE) until it is done.
    running_.push_back(transfer.release());
  }

  // Takes a finished or abandoned transfer back from curl.
  std::unique_ptr<Transfer> release(CURL* easy) {
    curl_multi_remove_handle(multi_, easy);
    Transfer* raw = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &raw);
    std::erase(running_, raw);
    return std::unique_ptr<Transfer>(raw);
  }

  void collectFinished() {
    int remaining = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &remaining)) {
      if (message->msg != CURLMSG_DONE) continue;
      const CURLcode result = message->data.result;  // `message` dies with the removal below
      std::unique_ptr<Transfer> transfer = release(message->easy_handle);
      // Saved before the completion runs: a process that ends after it keeps the cookies.
      if (transfer->setsCookies) cookies_.save(transfer->easy);
      if (result != CURLE_OK && resendsOnFreshConnection(*transfer, result)) {
        start(resentTransfer(std::move(transfer)));
      } else if (result != CURLE_OK) {
        Error error = errorOf(*transfer, result);
        finish(std::move(transfer), std::nullopt, std::nullopt, std::move(error));
      } else if (!followRedirect(transfer)) {
        URLResponse response = responseOf(*transfer);
        Bytes body = std::move(transfer->body);
        finish(std::move(transfer), std::move(body), std::move(response), std::nullopt);
      }
    }
  }

  static std::unique_ptr<Transfer> resentTransfer(std::unique_ptr<Transfer> failed) {
    auto again = std::make_unique<Transfer>(failed->ticket, std::move(failed->request),
                                            std::move(failed->completion), failed->redirects);
    again->resent = true;
    return again;
  }

  // Starts the next request when `transfer` ended in a redirect curl can point to; false when
  // its answer is the task's answer. Takes the transfer only when it returns true.
  bool followRedirect(std::unique_ptr<Transfer>& transfer) {
    long status = 0;
    char* location = nullptr;
    curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(transfer->easy, CURLINFO_REDIRECT_URL, &location);
    if (!isRedirectStatus(status) || location == nullptr) return false;
    std::optional<Url> target = Url::parse(location);
    if (!target || !isHttpScheme(lowercaseScheme(*target))) {
      finish(std::move(transfer), std::nullopt, std::nullopt,
             transportError(kURLErrorUnsupportedURL, "unsupported URL"));
    } else if (transfer->redirects >= kMaxRedirects) {
      finish(std::move(transfer), std::nullopt, std::nullopt,
             transportError(kURLErrorHTTPTooManyRedirects, "too many HTTP redirects"));
    } else {
      start(std::make_unique<Transfer>(
          transfer->ticket, redirectedRequest(std::move(transfer->request), *target, status),
          std::move(transfer->completion), transfer->redirects + 1));
      transfer.reset();
    }
    return true;
  }

  // Fails the transfers that have been silent for their whole time-out; the milliseconds until
  // the next one could.
  int expireIdle() {
    const auto now = SteadyClock::now();
    auto next = now + std::chrono::milliseconds(kIdlePollMs);
    std::vector<CURL*> expired;
    for (Transfer* transfer : running_) {
      const auto deadline = transfer->lastActivity + transfer->idleLimit;
      if (deadline <= now) expired.push_back(transfer->easy);
      next = std::min(next, deadline);
    }
    for (CURL* easy : expired) {
      finish(release(easy), std::nullopt, std::nullopt,
             transportError(kURLErrorTimedOut, "The request timed out."));
    }
    if (!expired.empty()) return 0;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::clamp<std::int64_t>(wait, 0, kIdlePollMs));
  }

  void runPosted() {
    std::deque<std::pair<std::uint64_t, std::function<void()>>> posted;
    {
      MutexLock lock(mutex_);
      posted.swap(posted_);
    }
    for (auto& [ticket, completion] : posted) {
      try {
        completion();
      } catch (...) {
        // As with a task's completion: the worker outlives a throwing callback.
      }
      completion = nullptr;
      {
        MutexLock lock(mutex_);
        unfinished_.erase(ticket);
      }
      settled_.notify_all();
    }
  }

  // Frees the transfer, runs its completion once, then lets waiters see it finished.
  void finish(std::unique_ptr<Transfer> transfer, std::optional<Bytes> body,
              std::optional<URLResponse> response, std::optional<Error> error) {
    const std::uint64_t ticket = transfer->ticket;
    DataTaskCompletion completion = std::move(transfer->completion);
    transfer.reset();
    try {
      if (completion) completion(std::move(body), std::move(response), std::move(error));
    } catch (...) {
      // A throwing completion must not end the worker and with it every later exchange.
    }
    completion = nullptr;  // release what the callback captured before reporting it finished
    {
      MutexLock lock(mutex_);
      unfinished_.erase(ticket);
    }
    settled_.notify_all();
  }

  CURLM* const multi_;
  detail::CookieJar cookies_;  // worker thread only, apart from its own locks
  std::thread::id workerId_;
  Mutex mutex_;
  std::condition_variable_any settled_;  // a completion has returned
  std::deque<std::unique_ptr<Transfer>> queued_ ZELNORA_GUARDED_BY(mutex_);
  std::set<std::uint64_t> unfinished_ ZELNORA_GUARDED_BY(mutex_);  // tickets not yet completed
  std::deque<std::pair<std::uint64_t, std::function<void()>>> posted_ ZELNORA_GUARDED_BY(mutex_);
  std::uint64_t nextTicket_ ZELNORA_GUARDED_BY(mutex_) = 0;
  std::vector<Transfer*> running_;  // worker thread only: transfers curl runs
};

}  // namespace

URLSessionNetwork urlSessionNetwork() {
  MutexLock lock(networkMutex);
  return networkSettings;
}

void setURLSessionNetwork(const URLSessionNetwork& network) {
  MutexLock lock(networkMutex);
  networkSettings = network;
}

URLSessionLimits urlSessionLimits() { return {maximumBodyBytes.load(), maximumHeaderBytes.load()}; }

void setURLSessionLimits(const URLSessionLimits& limits) {
  maximumBodyBytes.store(limits.maximumBodyBytes);
  maximumHeaderBytes.store(limits.maximumHeaderBytes);
}

namespace linux_provider {

URLSession& urlSession() {
  // Never destroyed: the worker thread may still run while static destructors do at exit.
  static CurlUrlSession* const session = new CurlUrlSession();
  return *session;
}

}  // namespace linux_provider
}  // namespace platform
