#include "zelnora_core/APIRequest.h"

#include <array>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>
#include <vector>

#include "RequestUrl.h"
#include "TextUtil.h"
#include "platform/internal/ThreadAnnotations.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace {

constexpr std::array<std::pair<HTTPMethod, std::string_view>, 4> kMethods{{
    {HTTPMethod::get, "GET"},
    {HTTPMethod::post, "POST"},
    {HTTPMethod::put, "PUT"},
    {HTTPMethod::delete_, "DELETE"},
}};

constexpr std::array<std::pair<APIEndpoint, std::string_view>, 7> kEndpoints{{
    {APIEndpoint::getCampaign, "/campaign/v3/{zoneId}"},
    {APIEndpoint::sendTracking, "/tracker"},
    {APIEndpoint::sendAppTracking, "/tracker/app"},
    {APIEndpoint::sendPollAnswers, "/tracker/quiz"},
    {APIEndpoint::registerInVqx, "/v2/register"},
    {APIEndpoint::unregisterInVqx, "/v1/unregister"},
    {APIEndpoint::vqxCallback, "/v1/device/callback"},
}};

template <typename Enum, std::size_t N>
std::string_view rawValueIn(const std::array<std::pair<Enum, std::string_view>, N>& table,
                            Enum value) {
  for (const auto& [candidate, raw] : table) {
    if (candidate == value) return raw;
  }
  return {};
}

template <typename Enum, std::size_t N>
std::optional<Enum> lookUpIn(const std::array<std::pair<Enum, std::string_view>, N>& table,
                             std::string_view raw) {
  for (const auto& [candidate, candidateRaw] : table) {
    if (candidateRaw == raw) return candidate;
  }
  return std::nullopt;
}

// One base URL read from the stored host-bundle configuration on first use and kept for the
// process. Only a stored configuration fills it: while none is stored (before the first start-up
// has saved one) nothing is cached, the base reads as absent and no URL can be formed, so the
// first configuration stored later is the one this process keeps.
class CachedBase {
 public:
  explicit CachedBase(std::string ZAPIConfig::*field) : field_(field) {}

  const std::string* get() {
    if (const std::string* cached = value_.load(std::memory_order_acquire)) return cached;
    platform::MutexLock lock(fillMutex_);  // taken only until the value has been filled
    if (const std::string* cached = value_.load(std::memory_order_relaxed)) return cached;
    std::optional<ZAPIConfig> config = ZAPreferencesUtil::getApiConfig();
    if (!config) return nullptr;
    storage_ = std::move((*config).*field_);
    value_.store(&storage_, std::memory_order_release);
    return &storage_;
  }

 private:
  std::string ZAPIConfig::*field_;
  platform::Mutex fillMutex_;
  // Written once; later readers reach it through value_, whose release orders the write first.
  std::string storage_ ZELNORA_GUARDED_BY(fillMutex_);
  std::atomic<const std::string*> value_{nullptr};  // &storage_ once filled
};

CachedBase& cachedBase(detail::BaseKind kind) {
  static CachedBase api(&ZAPIConfig::apiBaseUrl);
  static CachedBase gateway(&ZAPIConfig::vqxBaseUrl);
  return kind == detail::BaseKind::gateway ? gateway : api;
}

// Swift-style description of a double: the shortest round-trip digits, fixed notation for
// decimal exponents -4 to 15 (always with a fractional part), scientific otherwise.
std::string doubleText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  std::array<char, 64> buffer{};
  auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                              std::chars_format::scientific);
  std::string_view scientific(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
  std::string out;
  if (scientific.front() == '-') {
    out.push_back('-');
    scientific.remove_prefix(1);
  }
  const std::size_t ePos = scientific.find('e');
  std::string digits;
  for (char c : scientific.substr(0, ePos)) {
    if (c != '.') digits.push_back(c);
  }
  int exponent = 0;
  std::string_view exponentText = scientific.substr(ePos + 1);
  if (exponentText.front() == '+') exponentText.remove_prefix(1);
  std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);

  if (exponent < -4 || exponent >= 16) {
    out.push_back(digits.front());
    if (digits.size() > 1) out.append(".").append(digits, 1);
    out.append(exponent < 0 ? "e-" : "e+");
    const int magnitude = std::abs(exponent);
    if (magnitude < 10) out.push_back('0');
    out.append(std::to_string(magnitude));
  } else if (exponent < 0) {
    out.append("0.").append(static_cast<std::size_t>(-exponent - 1), '0').append(digits);
  } else {
    const auto integerDigits = static_cast<std::size_t>(exponent) + 1;
    if (digits.size() <= integerDigits) {
      out.append(digits).append(integerDigits - digits.size(), '0').append(".0");
    } else {
      out.append(digits, 0, integerDigits).append(".").append(digits, integerDigits);
    }
  }
  return out;
}

std::optional<platform::Url> urlWithQuery(const std::string& text,
                                          const std::map<std::string, ParameterValue>& parameters) {
  if (!platform::Url::parse(text)) return std::nullopt;
  std::optional<platform::UrlComponents> components = platform::UrlComponents::parse(text);
  if (!components) return std::nullopt;
  std::vector<platform::QueryItem> items;
  items.reserve(parameters.size());
  for (const auto& [name, value] : parameters)
    items.emplace_back(name, detail::parameterText(value));
  components->setQueryItems(items);
  return components->url();
}

}  // namespace

std::string_view rawValue(HTTPMethod method) { return rawValueIn(kMethods, method); }

std::optional<HTTPMethod> httpMethodFromRawValue(std::string_view raw) {
  return lookUpIn(kMethods, raw);
}

std::string_view rawValue(APIEndpoint endpoint) { return rawValueIn(kEndpoints, endpoint); }

std::optional<APIEndpoint> apiEndpointFromRawValue(std::string_view raw) {
  return lookUpIn(kEndpoints, raw);
}

// Without a stored API configuration the text is the bare raw path, which is no absolute URL:
// APIRequest::url() is then absent and the service reports "Invalid URL".
std::string urlString(APIEndpoint endpoint) {
  std::string text;
  if (const std::string* base = cachedBase(detail::baseKindOf(endpoint)).get()) text = *base;
  text.append(rawValue(endpoint));
  return text;
}

APIRequest::APIRequest(APIEndpoint endpoint, HTTPMethod method,
                       std::optional<std::map<std::string, std::string>> path,
                       std::optional<std::map<std::string, ParameterValue>> parameters,
                       std::optional<std::map<std::string, std::string>> headers,
                       std::optional<platform::Bytes> body)
    : endpoint_(endpoint),
      method_(method),
      path_(std::move(path)),
      parameters_(std::move(parameters)),
      headers_(std::move(headers)),
      body_(std::move(body)) {}

std::optional<platform::Url> APIRequest::url() const {
  return detail::formRequestUrl(urlString(endpoint_), path_, parameters_);
}

namespace detail {

BaseKind baseKindOf(APIEndpoint endpoint) {
  const std::string_view raw = rawValue(endpoint);
  const bool gateway =
      raw == "/v2/register" || raw == "/v1/unregister" || raw == "/v1/device/callback";
  return gateway ? BaseKind::gateway : BaseKind::api;
}

std::string substitutePlaceholders(std::string text,
                                   const std::map<std::string, std::string>& placeholders) {
  std::string placeholder;
  for (const auto& [key, value] : placeholders) {
    placeholder.assign("{").append(key).append("}");
    text = replacingAll(text, placeholder, value);
  }
  return text;
}

std::string parameterText(const ParameterValue& value) {
  struct Visitor {
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(double number) const { return doubleText(number); }
  };
  return std::visit(Visitor{}, value);
}

std::optional<platform::Url> formRequestUrl(
    std::string urlText, const std::optional<std::map<std::string, std::string>>& placeholders,
    const std::optional<std::map<std::string, ParameterValue>>& parameters) {
  if (placeholders) urlText = substitutePlaceholders(std::move(urlText), *placeholders);
  if (parameters) {
    if (std::optional<platform::Url> withQuery = urlWithQuery(urlText, *parameters)) {
      return withQuery;
    }
  }
  return platform::Url::parse(urlText);
}

}  // namespace detail
}  // namespace zelnora_core
