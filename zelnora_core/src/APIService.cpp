#include "zelnora_core/APIService.h"

#include <string>
#include <utility>

#include "APIServiceDetail.h"
#include "DurableReports.h"
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

// A request that cannot be formed sends nothing, yet its completion runs like every other one:
// once, on the session's queue (never inside the caller's call), and covered by waitUntilIdle.
// The session is handed a request in a scheme no transport speaks, which it fails at once without
// any I/O; the handler reports the kit's own error instead of the session's.
void completeWithInvalidUrl(APICompletion completion) {
  platform::printLine("Invalid URL");
  static const std::optional<platform::Url> unsendable =
      platform::Url::parse("zelnora-unsent://invalid/");
  auto complete = [completion = std::move(completion)](auto&&...) {
    completion(std::nullopt, std::nullopt, detail::invalidUrlError());
  };
  if (!unsendable) {
    complete();  // only if the URL parser rejected the constant: late is better than never
    return;
  }
  platform::urlSession().dataTask(platform::URLRequest(*unsendable), std::move(complete));
}

}  // namespace

APIService& APIService::shared() {
  static APIService instance;
  return instance;
}

void APIService::request(const APIRequest& request, APICompletion completion) {
  if (!completion) completion = [](auto&&...) {};
  std::optional<platform::Url> url = request.url();
  std::optional<platform::URLRequest> urlRequest;
  if (url) {
    urlRequest = detail::makeURLRequest(request, *url, ZAPreferencesUtil::getSdkConfig(),
                                        ZAPreferencesUtil::getCustomHeaders());
  }
  if (!urlRequest) {
    completeWithInvalidUrl(std::move(completion));
    return;
  }
  detail::logRequest(*urlRequest);
  platform::urlSession().dataTask(
      std::move(*urlRequest),
      [completion = std::move(completion)](std::optional<platform::Bytes> body,
                                           const std::optional<platform::URLResponse>& response,
                                           std::optional<platform::Error> error) {
        std::optional<platform::HTTPURLResponse> http = platform::asHTTPURLResponse(response);
        detail::logResponse(http, body, error);
        detail::Outcome outcome =
            detail::classifyOutcome(std::move(body), std::move(http), std::move(error));
        if (!outcome.error) detail::DurableReports::shared().noteSuccessfulExchange();
        completion(std::move(outcome.body), std::move(outcome.response), std::move(outcome.error));
      });
}

namespace detail {

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
