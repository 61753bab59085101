/// \file
/// HTTP requests and the process-wide URL session (libcurl multi on one background thread).
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/Url.h"
#include "platform/export.h"

namespace platform {

/// Header fields in the order they were first added. Names compare without regard to case.
class ZELNORA_PLATFORM_EXPORT HeaderFields {
 public:
  /// Appends `value` to the field's existing value after a comma ("a,b"), or adds the field.
  void addValue(std::string_view value, std::string_view field);
  /// Replaces the field's value, or adds the field.
  void setValue(std::string_view value, std::string_view field);
  std::optional<std::string> value(std::string_view field) const;
  const std::vector<std::pair<std::string, std::string>>& fields() const { return fields_; }
  bool empty() const { return fields_.empty(); }

 private:
  std::vector<std::pair<std::string, std::string>> fields_;
};

enum class CachePolicy { useProtocolCachePolicy = 0, reloadIgnoringLocalCacheData = 1 };

struct ZELNORA_PLATFORM_EXPORT URLRequest {
  explicit URLRequest(Url u, CachePolicy policy = CachePolicy::useProtocolCachePolicy,
                      std::chrono::duration<double> timeout = std::chrono::seconds(60))
      : url(std::move(u)), cachePolicy(policy), timeoutInterval(timeout) {}

  Url url;
  CachePolicy cachePolicy;
  std::chrono::duration<double> timeoutInterval;
  std::string httpMethod = "GET";
  HeaderFields allHTTPHeaderFields;
  std::optional<Bytes> httpBody;

  void addValue(std::string_view value, std::string_view field) {
    allHTTPHeaderFields.addValue(value, field);
  }
};

/// What a completed exchange answered. `statusCode` is present only for HTTP responses.
struct ZELNORA_PLATFORM_EXPORT URLResponse {
  std::string url;
  std::optional<int> statusCode;
  std::vector<std::pair<std::string, std::string>> headerFields;
};

struct ZELNORA_PLATFORM_EXPORT HTTPURLResponse {
  int statusCode = 0;
  std::string url;
  /// Response header fields in arrival order; a repeated field joined with ", ".
  std::vector<std::pair<std::string, std::string>> allHeaderFields;
};

/// The HTTP view of a response; absent when the response is not an HTTP response.
ZELNORA_PLATFORM_EXPORT std::optional<HTTPURLResponse> asHTTPURLResponse(
    const std::optional<URLResponse>& response);

using DataTaskCompletion = std::function<void(
    std::optional<Bytes> body, std::optional<URLResponse> response, std::optional<Error> error)>;

/// Guards that keep one answer from exhausting the host's memory; every exchange is held whole
/// until its completion runs. An answer past a guard fails (that exchange only) with a transport
/// error of NSURLErrorDomain.
struct ZELNORA_PLATFORM_EXPORT URLSessionLimits {
  /// The largest response body held for one exchange: -1103 ("resource exceeds maximum size")
  /// beyond it, whether the body is declared, chunked or ended by the close.
  std::size_t maximumBodyBytes = std::size_t{256} << 20;
  /// The largest header block of one answer (status line and header lines, interim answers
  /// included): -1011 with a description naming the header block beyond it. libcurl itself
  /// refuses more than 300 KB per answer and 100 KB per line, with the same error, so larger
  /// values change nothing.
  std::size_t maximumHeaderBytes = std::size_t{256} << 10;
};

/// The guards of the process's URL session. Any thread; a change applies to exchanges that start
/// after it.
ZELNORA_PLATFORM_EXPORT URLSessionLimits urlSessionLimits();
ZELNORA_PLATFORM_EXPORT void setURLSessionLimits(const URLSessionLimits& limits);

/// Where the session's requests go, as the phone's system proxy settings say. An absent field
/// leaves libcurl's reading of the environment (http_proxy, https_proxy, all_proxy, no_proxy).
struct ZELNORA_PLATFORM_EXPORT URLSessionNetwork {
  /// The proxy for every scheme ("http://proxy.example:3128", "socks5h://..."); an empty text
  /// means a direct connection whatever the environment says.
  std::optional<std::string> proxy;
  /// Hosts reached directly, comma-separated ("localhost,.corp.example"; "*" for all).
  std::optional<std::string> noProxy;
};

/// The network settings of the process's URL session. Any thread; a change applies to exchanges
/// that start after it.
ZELNORA_PLATFORM_EXPORT URLSessionNetwork urlSessionNetwork();
ZELNORA_PLATFORM_EXPORT void setURLSessionNetwork(const URLSessionNetwork& network);

/// The process-wide session, as the phone's shared session behaves:
/// - A request the server may have acted on is sent at most once. When a kept-alive connection
///   dies after a POST went out and before any answer byte, the exchange fails with -1005 ("The
///   network connection was lost."). A request goes again, once, on a fresh connection when the
///   server provably did not act on it (an HTTP/2 stream refused or above a GOAWAY's last stream
///   id, a request not written at all), and an idempotent one (GET, HEAD, PUT, DELETE, OPTIONS)
///   when the reused connection it went out on closed before any answer byte.
/// - Every request carries the session's own User-Agent, Accept-Language and Accept-Encoding
///   (replaced by the request's own User-Agent or Accept-Language); compressed answers are decoded,
///   and the body limit counts decoded bytes. https needs TLS 1.2 or newer and a verified peer
///   (SSL_CERT_FILE or SSL_CERT_DIR name another trust store); HTTP/2 through ALPN.
/// - Redirects (301, 302, 303, 307, 308) are followed, at most 16: 303, and 301 or 302 after a
///   POST, go on as a GET without the body and its Content-* headers; the others keep method,
///   body and headers. The response is the last one, with its URL.
/// - Host, Content-Length and Transfer-Encoding on the wire are always the transport's own; fields
///   of these names in the request are never sent.
/// - `timeoutInterval` is an idle time-out (in whole seconds, at least one): the exchange fails
///   with -1001 when no data has flowed for that long, or when connecting takes that long; a slow
///   but steady answer completes however long it takes.
/// - Cookies are kept per the HTTP rules by one store shared by every exchange of the process and
///   persisted for the app's bundle identifier (see README).
class ZELNORA_PLATFORM_EXPORT URLSession {
 public:
  virtual ~URLSession() = default;
  URLSession() = default;
  URLSession(const URLSession&) = delete;
  URLSession& operator=(const URLSession&) = delete;

  /// Starts the exchange at once ("resume"). Any thread; never blocks on the network.
  /// `completion` runs exactly once, on the session's background thread, never on the caller's:
  /// (body, response, no error) when an answer arrived (an empty body is a body), or
  /// (no body, no response, transport error). A header field whose name or value holds CR, LF or
  /// NUL is not sent (the request goes out without it).
  virtual void dataTask(URLRequest request, DataTaskCompletion completion) = 0;

  /// Waits until every task started before the call has completed (its completion has returned),
  /// or until `limit` passes. True when idle. For hosts and tests; the kit never waits.
  virtual bool waitUntilIdle(std::chrono::milliseconds limit) = 0;
};

}  // namespace platform
