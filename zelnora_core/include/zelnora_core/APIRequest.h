/// \file
/// The request vocabulary of the service's API: methods, endpoints and the immutable request
/// record.
///
/// \code
/// using namespace zelnora_core;
/// APIRequest request(APIEndpoint::getCampaign, HTTPMethod::get, {{{"zoneId", "42"}}},
///                    {{{"page", std::int64_t{2}}}}, std::nullopt, std::nullopt);
/// auto url = request.url();  // API base + "/campaign/v3/42?page=2"
/// \endcode
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/Bytes.h"
#include "platform/Url.h"
#include "zelnora_core/export.h"

namespace zelnora_core {

enum class HTTPMethod { get, post, put, delete_ };

ZELNORA_CORE_EXPORT std::string_view rawValue(HTTPMethod method);
/// Exact, case-sensitive match of "GET", "POST", "PUT", "DELETE".
ZELNORA_CORE_EXPORT std::optional<HTTPMethod> httpMethodFromRawValue(std::string_view raw);

enum class APIEndpoint {
  getCampaign,
  sendTracking,
  sendAppTracking,
  sendPollAnswers,
  registerInVqx,
  unregisterInVqx,
  vqxCallback,
};

/// The endpoint's path relative to its base URL ("/tracker/app").
ZELNORA_CORE_EXPORT std::string_view rawValue(APIEndpoint endpoint);
ZELNORA_CORE_EXPORT std::optional<APIEndpoint> apiEndpointFromRawValue(std::string_view raw);
/// The base URL (read once per process from the stored host-bundle configuration) + raw path.
/// While no configuration is stored nothing is cached and the text is the bare raw path, which
/// forms no URL; the first configuration stored later is the one the process keeps.
ZELNORA_CORE_EXPORT std::string urlString(APIEndpoint endpoint);

/// A query parameter's value; sent as its textual form.
using ParameterValue = std::variant<std::string, std::int64_t, bool, double>;

class ZELNORA_CORE_EXPORT APIRequest {
 public:
  APIRequest(APIEndpoint endpoint, HTTPMethod method,
             std::optional<std::map<std::string, std::string>> path,
             std::optional<std::map<std::string, ParameterValue>> parameters,
             std::optional<std::map<std::string, std::string>> headers,
             std::optional<platform::Bytes> body);

  APIEndpoint endpoint() const { return endpoint_; }
  HTTPMethod method() const { return method_; }
  const std::optional<std::map<std::string, std::string>>& path() const { return path_; }
  const std::optional<std::map<std::string, ParameterValue>>& parameters() const {
    return parameters_;
  }
  const std::optional<std::map<std::string, std::string>>& headers() const { return headers_; }
  const std::optional<platform::Bytes>& body() const { return body_; }

  /// The absolute URL to call; absent when none can be formed ("Invalid URL").
  std::optional<platform::Url> url() const;

 private:
  APIEndpoint endpoint_;
  HTTPMethod method_;
  std::optional<std::map<std::string, std::string>> path_;
  std::optional<std::map<std::string, ParameterValue>> parameters_;
  std::optional<std::map<std::string, std::string>> headers_;
  std::optional<platform::Bytes> body_;
};

}  // namespace zelnora_core
