#include "zelnora_core/APIService.h"

#include <atomic>
#include <string>
#include <utility>

#include "APIServiceDetail.h"
#include "TrafficLog.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace {

void addIfSendable(platform::URLRequest& request, std::string_view value, std::string_view name) {
  if (detail::isSendableHeaderField(name, value)) request.addValue(value, name);
}

// The "Host" field names an IPv6 literal in brackets, as the authority of the URL does.
std::string hostFieldValue(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::atomic<detail::ExchangeObserver> exchangeObserver{nullptr};

void announce(const detail::Exchange& exchange) {
  if (detail::ExchangeObserver observer = exchangeObserver.load()) observer(exchange);
}

// A request that cannot be formed sends nothing, yet its completion runs like every other one:
// once, on the session's thread (never inside the caller's call), and covered by waitUntilIdle.
void completeWithInvalidUrl(detail::ExchangeCompletion done) {
  platform::printLine("Invalid URL");
  platform::urlSession().post([done = std::move(done)] {
    detail::Exchange exchange{{std::nullopt, std::nullopt, detail::invalidUrlError()},
                              std::nullopt};
    announce(exchange);
    done(std::move(exchange));
  });
}

}  // namespace

APIService& APIService::shared() {
  static APIService instance;
  return instance;
}

void APIService::request(const APIRequest& request, APICompletion completion) {
  detail::exchange(request, [completion = std::move(completion)](detail::Exchange exchange) {
    if (!completion) return;
    detail::Outcome& outcome = exchange.outcome;
    completion(std::move(outcome.body), std::move(outcome.response), std::move(outcome.error));
  });
}

namespace detail {

void setExchangeObserver(ExchangeObserver observer) { exchangeObserver.store(observer); }

void exchange(const APIRequest& request, ExchangeCompletion done) {
  std::optional<platform::Url> url = request.url();
  std::optional<platform::URLRequest> urlRequest;
  if (url) {
    urlRequest = makeURLRequest(request, *url, ZAPreferencesUtil::getSdkConfig(),
                                ZAPreferencesUtil::getCustomHeaders());
  }
  if (!urlRequest) {
    completeWithInvalidUrl(std::move(done));
    return;
  }
  logRequest(*urlRequest);
  platform::urlSession().dataTask(std::move(*urlRequest), [done = std::move(done)](
                                                              std::optional<platform::Bytes> body,
                                                              const std::optional<
                                                                  platform::URLResponse>& response,
                                                              std::optional<platform::Error>
                                                                  error) {
    std::optional<platform::HTTPURLResponse> http = platform::asHTTPURLResponse(response);
    logResponse(http, body, error);
    Exchange exchange{classifyOutcome(std::move(body), http, std::move(error)), std::move(http)};
    announce(exchange);
    done(std::move(exchange));
  });
}

platform::Error invalidUrlError() {
  return platform::Error{platform::kURLErrorDomain, platform::kURLErrorBadURL, std::nullopt};
}

std::optional<platform::URLRequest> makeURLRequest(
    const APIRequest& request, const platform::Url& url, const std::optional<ZAConfig>& config,
    const std::optional<std::map<std::string, std::string>>& customHeaders) {
  std::optional<std::string> host = url.host();
  if (!host) return std::nullopt;
  platform::URLRequest out(url, platform::CachePolicy::useProtocolCachePolicy,
                           std::chrono::seconds(60));
  out.httpMethod = std::string(rawValue(request.method()));
  out.addValue("application/json; charset=UTF-8", "Content-Type");
  out.addValue("*/*", "Accept");
  out.addValue(request.body() ? std::to_string(request.body()->size()) : "0", "Content-Length");
  addIfSendable(out, hostFieldValue(*host), "Host");
  if (config && config->zelnoraAdsAppId) {
    addIfSendable(out, *config->zelnoraAdsAppId, "X-ZELNORA-CHANNEL-UUID");
  }
  // Custom "Host", "Content-Length" or "Transfer-Encoding" join the request (and its dump) like
  // any other field; the session frames the message itself and never sends them.
  if (customHeaders) {
    for (const auto& [name, value] : *customHeaders) addIfSendable(out, value, name);
  }
  out.httpBody = request.body();
  return out;
}

Outcome classifyOutcome(std::optional<platform::Bytes> body,
                        std::optional<platform::HTTPURLResponse> response,
                        std::optional<platform::Error> error) {
  if (error) return {std::nullopt, std::nullopt, std::move(error)};
  if (!body) return {std::nullopt, std::nullopt, platform::Error{"Data", -1, std::nullopt}};
  if (response && response->statusCode >= 200 && response->statusCode <= 299) {
    return {std::move(body), std::move(response), std::nullopt};
  }
  const int status = response ? response->statusCode : -1;
  return {std::nullopt, std::nullopt, platform::Error{"StatusCode", status, std::nullopt}};
}

}  // namespace detail
}  // namespace zelnora_core
