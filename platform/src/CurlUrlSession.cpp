// The Linux URL session: libcurl's multi interface driven by one background worker thread.
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include <curl/curl.h>

#include "LinuxProviders.h"
#include "platform/UrlSession.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

constexpr long kMaxConnectionsPerHost = 8;
constexpr long kMaxTotalConnections = 32;
// Tasks beyond this many wait in our own queue, so sockets and buffers stay bounded.
constexpr std::size_t kMaxActiveTransfers = 64;
constexpr long kMaxRedirects = 16;
constexpr std::size_t kMaxResponseHeaderBytes = 1 << 20;
// The most bytes one response body may hold; a longer answer ends in a transport error. The kit's
// own answers are a few hundred bytes of JSON and the other endpoints' answers stay far below
// this, but every body is held whole until its completion runs, up to 8 at a time per host: without
// a cap a slow or hostile service could make the host's memory grow without bound.
constexpr std::size_t kMaxResponseBodyBytes = 4 << 20;
constexpr double kDefaultTimeoutMs = 60'000;
constexpr double kMaxTimeoutMs = 7 * 24 * 3600 * 1000.0;
// The worker's longest sleep when nothing runs; new tasks wake it at once anyway.
constexpr int kIdlePollMs = 10'000;

using Fields = std::vector<std::pair<std::string, std::string>>;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

std::string_view trimBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::string lowercaseScheme(const Url& url) {
  const auto& text = url.absoluteString();
  std::string scheme = text.substr(0, text.find(':'));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return scheme;
}

bool isHttpScheme(const std::string& scheme) { return scheme == "http" || scheme == "https"; }

// ---- Request headers --------------------------------------------------------------------------

bool isTokenChar(unsigned char c) {
  constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  return std::isalnum(c) || kSymbols.find(static_cast<char>(c)) != std::string_view::npos;
}

// An HTTP token: this also keeps CR, LF, NUL, ':' and blanks out of names and methods.
bool isToken(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return isTokenChar(c); });
}

// curl writes header lines verbatim: CR or LF in a value would inject header lines.
bool isSendableValue(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

// A Content-Length other than the body's exact size would corrupt the exchange; curl's own
// header is used instead.
bool isTruthfulContentLength(std::string_view value, std::size_t bodySize) {
  value = trimBlanks(value);
  std::uint64_t declared = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), declared);
  return error == std::errc() && end == value.data() + value.size() && declared == bodySize;
}

bool isSendableField(const std::string& name, const std::string& value, std::size_t bodySize) {
  if (!isToken(name) || !isSendableValue(value)) return false;
  return !equalsIgnoringCase(name, "Content-Length") || isTruthfulContentLength(value, bodySize);
}

curl_slist* buildHeaderList(const HeaderFields& fields, std::size_t bodySize) {
  curl_slist* list = nullptr;
  bool hasExpect = false;
  for (const auto& [name, value] : fields.fields()) {
    if (!isSendableField(name, value, bodySize)) continue;
    hasExpect = hasExpect || equalsIgnoringCase(name, "Expect");
    // "Name;" is curl's way to send a header with an empty value ("Name:" would remove it).
    std::string line = name;
    line.append(value.empty() ? ";" : ": ").append(value);
    list = curl_slist_append(list, line.c_str());
  }
  // Without this curl waits for "100 Continue" before sending larger bodies.
  if (!hasExpect) list = curl_slist_append(list, "Expect:");
  return list;
}

// ---- Response headers -------------------------------------------------------------------------

void recordHeaderLine(Fields& fields, std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.substr(0, 5) == "HTTP/") {
    fields.clear();  // a new response begins (redirect, 1xx): only the last one counts
    return;
  }
  if (line.empty()) return;
  if ((line.front() == ' ' || line.front() == '\t') && !fields.empty()) {
    fields.back().second += ' ';
    fields.back().second += trimBlanks(line);
    return;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const auto name = trimBlanks(line.substr(0, colon));
  const auto value = trimBlanks(line.substr(colon + 1));
  auto existing = std::find_if(fields.begin(), fields.end(), [&](const auto& field) {
    return equalsIgnoringCase(field.first, name);
  });
  if (existing == fields.end()) {
    fields.emplace_back(std::string(name), std::string(value));
  } else {
    existing->second += ", ";
    existing->second += value;
  }
}

// ---- Errors -------------------------------------------------------------------------------------

std::int64_t urlErrorCode(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT: return kURLErrorTimedOut;
    case CURLE_COULDNT_CONNECT: return kURLErrorCannotConnectToHost;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return kURLErrorCannotFindHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
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

void ignoreSigpipeUnlessHandled() {
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    (void)signal(SIGPIPE, SIG_IGN);
  }
}

// ---- One exchange -------------------------------------------------------------------------------

// Lives from dataTask to its completion; while curl runs it, the easy handle points back to it.
struct Transfer {
  Transfer(std::uint64_t id, URLRequest r, DataTaskCompletion c)
      : ticket(id), request(std::move(r)), completion(std::move(c)) {}
  ~Transfer() {
    if (easy != nullptr) curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  std::uint64_t ticket;
  URLRequest request;
  DataTaskCompletion completion;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  char errorText[CURL_ERROR_SIZE] = {};
  Bytes body;
  Fields responseHeaders;
  std::size_t responseHeaderBytes = 0;
  bool headersTooLarge = false;
  bool bodyTooLarge = false;
};

// Grows the buffer geometrically as insertion would, but never past the cap: a body just under it
// then holds at most the cap, where a doubling could reserve nearly twice as much.
void reserveWithinCap(Bytes& body, std::size_t needed) {
  if (needed <= body.capacity()) return;
  body.reserve(std::min(std::max(needed, 2 * body.capacity()), kMaxResponseBodyBytes));
}

std::size_t onBodyData(char* data, std::size_t size, std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  // Catches what a declared Content-Length cannot: chunked and close-delimited bodies (curl checks
  // only a declared size against CURLOPT_MAXFILESIZE_LARGE).
  if (length > kMaxResponseBodyBytes - transfer.body.size()) {
    transfer.bodyTooLarge = true;
    return 0;  // a short count aborts the transfer
  }
  reserveWithinCap(transfer.body, transfer.body.size() + length);
  transfer.body.insert(transfer.body.end(), data, data + length);
  return length;
}

std::size_t onHeaderLine(char* data, std::size_t size, std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  transfer.responseHeaderBytes += length;
  if (transfer.responseHeaderBytes > kMaxResponseHeaderBytes) {
    transfer.headersTooLarge = true;
    return 0;  // aborts the transfer
  }
  recordHeaderLine(transfer.responseHeaders, std::string_view(data, length));
  return length;
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
  const auto& body = transfer.request.httpBody;
  transfer.headers = buildHeaderList(transfer.request.allHTTPHeaderFields, body ? body->size() : 0);

  curl_easy_setopt(easy, CURLOPT_URL, transfer.request.url.absoluteString().c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMilliseconds(transfer.request.timeoutInterval));
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.errorText);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBodyData);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeaderLine);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.headers);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
  configureMethodAndBody(easy, transfer);
  // A body too long by its declared Content-Length fails before any of it is read. Not for HEAD:
  // its Content-Length describes a body that never comes.
  if (transfer.request.httpMethod != "HEAD") {
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                     static_cast<curl_off_t>(kMaxResponseBodyBytes));
  }
  return std::nullopt;
}

URLResponse responseOf(Transfer& transfer) {
  URLResponse response;
  long redirects = 0;
  char* effectiveUrl = nullptr;
  curl_easy_getinfo(transfer.easy, CURLINFO_REDIRECT_COUNT, &redirects);
  curl_easy_getinfo(transfer.easy, CURLINFO_EFFECTIVE_URL, &effectiveUrl);
  // Without a redirect the URL keeps the text it was given (curl would normalise it).
  response.url = redirects > 0 && effectiveUrl != nullptr ? std::string(effectiveUrl)
                                                          : transfer.request.url.absoluteString();
  if (isHttpScheme(lowercaseScheme(transfer.request.url))) {
    long status = 0;
    curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
    response.statusCode = static_cast<int>(status);
    response.headerFields = std::move(transfer.responseHeaders);
  }
  return response;
}

Error errorOf(const Transfer& transfer, CURLcode result) {
  if (transfer.headersTooLarge) {
    return transportError(kURLErrorBadServerResponse, "response headers too large");
  }
  // Both come from the body cap: curl's CURLE_FILESIZE_EXCEEDED for a declared size, and the
  // CURLE_WRITE_ERROR that our short count in onBodyData causes.
  if (transfer.bodyTooLarge || result == CURLE_FILESIZE_EXCEEDED) {
    return transportError(kURLErrorDataLengthExceedsMaximum, "resource exceeds maximum size");
  }
  std::string description = transfer.errorText[0] != '\0' ? std::string(transfer.errorText)
                                                          : std::string(curl_easy_strerror(result));
  return transportError(urlErrorCode(result), std::move(description));
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
      std::lock_guard lock(mutex_);
      const std::uint64_t ticket = nextTicket_++;
      unfinished_.insert(ticket);
      queued_.push_back(
          std::make_unique<Transfer>(ticket, std::move(request), std::move(completion)));
    }
    curl_multi_wakeup(multi_);
  }

  bool waitUntilIdle(std::chrono::milliseconds limit) override {
    std::unique_lock lock(mutex_);
    const std::uint64_t horizon = nextTicket_;
    auto idle = [&] { return unfinished_.empty() || *unfinished_.begin() >= horizon; };
    // A completion waiting for its own task would wait forever.
    if (std::this_thread::get_id() == workerId_) return idle();
    return settled_.wait_for(lock, limit, idle);
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

  void runWorker() {
    for (;;) {
      admitQueued();
      int running = 0;
      curl_multi_perform(multi_, &running);
      collectFinished();
      if (!canAdmitMore()) curl_multi_poll(multi_, nullptr, 0, kIdlePollMs, nullptr);
    }
  }

  bool canAdmitMore() {
    std::lock_guard lock(mutex_);
    return !queued_.empty() && active_ < kMaxActiveTransfers;
  }

  void admitQueued() {
    std::vector<std::unique_ptr<Transfer>> admitted;
    {
      std::lock_guard lock(mutex_);
      while (!queued_.empty() && active_ + admitted.size() < kMaxActiveTransfers) {
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
    if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
      finish(std::move(transfer), std::nullopt, std::nullopt,
             transportError(kURLErrorUnknown, "cannot start the transfer"));
      return;
    }
    ++active_;
    (void)transfer.release();  // owned by the easy handle (CURLOPT_PRIVATE) until it is done
  }

  void collectFinished() {
    int remaining = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &remaining)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      const CURLcode result = message->data.result;  // `message` dies with the removal below
      curl_multi_remove_handle(multi_, easy);
      --active_;
      Transfer* raw = nullptr;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &raw);
      std::unique_ptr<Transfer> transfer(raw);
      if (result == CURLE_OK) {
        URLResponse response = responseOf(*transfer);
        Bytes body = std::move(transfer->body);
        finish(std::move(transfer), std::move(body), std::move(response), std::nullopt);
      } else {
        Error error = errorOf(*transfer, result);
        finish(std::move(transfer), std::nullopt, std::nullopt, std::move(error));
      }
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
      std::lock_guard lock(mutex_);
      unfinished_.erase(ticket);
    }
    settled_.notify_all();
  }

  CURLM* const multi_;
  std::thread::id workerId_;
  std::mutex mutex_;
  std::condition_variable settled_;               // a completion has returned
  std::deque<std::unique_ptr<Transfer>> queued_;  // guarded by mutex_
  std::set<std::uint64_t> unfinished_;            // guarded by mutex_: tickets not yet completed
  std::uint64_t nextTicket_ = 0;                  // guarded by mutex_
  std::size_t active_ = 0;                        // worker thread only
};

}  // namespace

namespace linux_provider {

URLSession& urlSession() {
  // Never destroyed: the worker thread may still run while static destructors do at exit.
  static CurlUrlSession* const session = new CurlUrlSession();
  return *session;
}

}  // namespace linux_provider
}  // namespace platform
