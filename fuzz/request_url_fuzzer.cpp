// Fuzz target: a request's URL from an endpoint, a method, placeholder values and query parameters
// over fixed stored base URLs (the kit reads its bases once per process, so they stay fixed here).
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "platform/Url.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace {

using zelnora_core::APIEndpoint;
using zelnora_core::APIRequest;
using zelnora_core::HTTPMethod;
using zelnora_core::ParameterValue;

constexpr std::string_view kApiBase = "https://api.zelnora.example:8443/sdk";
constexpr std::string_view kApiHost = "api.zelnora.example";
constexpr std::string_view kGatewayBase = "http://127.0.0.1:8080";
constexpr std::string_view kGatewayHost = "127.0.0.1";

constexpr APIEndpoint kEndpoints[] = {
    APIEndpoint::getCampaign,     APIEndpoint::sendTracking,  APIEndpoint::sendAppTracking,
    APIEndpoint::sendPollAnswers, APIEndpoint::registerInVqx, APIEndpoint::unregisterInVqx,
    APIEndpoint::vqxCallback,
};
constexpr HTTPMethod kMethods[] = {HTTPMethod::get, HTTPMethod::post, HTTPMethod::put,
                                   HTTPMethod::delete_};

struct StoredConfiguration {
  platform::testing::FakeMainBundle bundle;
  platform::testing::InMemoryUserDefaults defaults;
  std::unique_ptr<platform::testing::ScopedServices> guard;
};

bool isGatewayEndpoint(APIEndpoint endpoint) {
  return endpoint == APIEndpoint::registerInVqx || endpoint == APIEndpoint::unregisterInVqx ||
         endpoint == APIEndpoint::vqxCallback;
}

// ---- Input shape ----

std::optional<std::map<std::string, std::string>> consumePlaceholders(FuzzedDataProvider& input) {
  if (!input.ConsumeBool()) return std::nullopt;
  std::map<std::string, std::string> placeholders;
  const int count = input.ConsumeIntegralInRange(0, 4);
  for (int i = 0; i < count; ++i) {
    std::string key = input.ConsumeBool() ? "zoneId" : input.ConsumeRandomLengthString(24);
    placeholders[std::move(key)] = input.ConsumeRandomLengthString(96);
  }
  return placeholders;
}

ParameterValue consumeParameterValue(FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0: return input.ConsumeRandomLengthString(64);
    case 1: return input.ConsumeIntegral<std::int64_t>();
    case 2: return input.ConsumeBool();
    default: return std::bit_cast<double>(input.ConsumeIntegral<std::uint64_t>());
  }
}

std::optional<std::map<std::string, ParameterValue>> consumeParameters(FuzzedDataProvider& input) {
  if (!input.ConsumeBool()) return std::nullopt;
  std::map<std::string, ParameterValue> parameters;
  const int count = input.ConsumeIntegralInRange(0, 6);
  for (int i = 0; i < count; ++i) {
    std::string name = input.ConsumeRandomLengthString(24);
    parameters.insert_or_assign(std::move(name), consumeParameterValue(input));
  }
  return parameters;
}

// ---- Invariants ----

bool isHexUpper(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

// Only the bytes the query encoder leaves raw, the item separators and well-formed upper-case
// escapes.
bool queryHoldsOnlyEncodedBytes(std::string_view query) {
  constexpr std::string_view kRaw = "-._~!$'()*,;:@/?&=";
  for (std::size_t i = 0; i < query.size(); ++i) {
    const char c = query[i];
    const bool alphanumeric =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (alphanumeric || kRaw.find(c) != std::string_view::npos) continue;
    if (c != '%' || i + 2 >= query.size() || !isHexUpper(query[i + 1]) ||
        !isHexUpper(query[i + 2])) {
      return false;
    }
    i += 2;
  }
  return true;
}

// Whether the decoded query text stands for the parameter's value: text and Booleans as written,
// integers in decimal, doubles as digits that read back to the same number.
bool valueTextMatches(const std::string& text, const ParameterValue& value) {
  if (const auto* string = std::get_if<std::string>(&value)) return text == *string;
  if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    return text == std::to_string(*integer);
  }
  if (const auto* flag = std::get_if<bool>(&value)) return text == (*flag ? "true" : "false");
  const double number = std::get<double>(value);
  char* end = nullptr;
  const double reread = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return false;
  return reread == number || (std::isnan(reread) && std::isnan(number));
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (std::size_t from = 0;;) {
    const std::size_t at = text.find(separator, from);
    pieces.push_back(text.substr(from, at - from));
    if (at == std::string_view::npos) return pieces;
    from = at + 1;
  }
}

// The query decodes item by item to exactly the parameters, in map order.
bool queryCarriesParameters(std::string_view query,
                            const std::map<std::string, ParameterValue>& parameters) {
  if (parameters.empty()) return query.empty();
  const std::vector<std::string_view> items = split(query, '&');
  if (items.size() != parameters.size()) return false;
  auto parameter = parameters.begin();
  for (std::string_view item : items) {
    const std::size_t equals = item.find('=');
    if (equals == std::string_view::npos) return false;
    if (platform::percentDecode(item.substr(0, equals)) != parameter->first) return false;
    if (!valueTextMatches(platform::percentDecode(item.substr(equals + 1)), parameter->second)) {
      return false;
    }
    ++parameter;
  }
  return true;
}

void checkUrl(const APIRequest& request, const platform::Url& url) {
  const std::string& text = url.absoluteString();
  // The text of a formed URL is itself a URL, and the same one.
  const std::optional<platform::Url> reparsed = platform::Url::parse(text);
  if (!reparsed || !(*reparsed == url)) __builtin_trap();
  // Placeholder values and parameters fill in path and query; they never move the request to
  // another host.
  const std::string_view host = isGatewayEndpoint(request.endpoint()) ? kGatewayHost : kApiHost;
  if (url.host() != std::optional<std::string>(host)) __builtin_trap();

  if (!request.path() && !request.parameters()) {
    if (text != zelnora_core::urlString(request.endpoint())) __builtin_trap();
  }
  if (!request.parameters()) return;
  // Parameters are dropped only when the URL without them could not be split and rebuilt; a URL
  // that forms without them carries every one of them.
  const std::optional<platform::UrlComponents> components = platform::UrlComponents::parse(text);
  if (!components || !components->percentEncodedQuery()) __builtin_trap();
  const std::string& query = *components->percentEncodedQuery();
  if (!queryHoldsOnlyEncodedBytes(query)) __builtin_trap();
  if (!queryCarriesParameters(query, *request.parameters())) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static StoredConfiguration stored;
  stored.guard = std::make_unique<platform::testing::ScopedServices>([](platform::Services& s) {
    s.mainBundle = &stored.bundle;
    s.userDefaults = &stored.defaults;
  });
  zelnora_core::ZAPreferencesUtil::saveApiConfig({"https://api.zelnora.example/config/{key}",
                                                  std::string(kApiBase),
                                                  std::string(kGatewayBase)});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const APIEndpoint endpoint = input.PickValueInArray(kEndpoints);
  const HTTPMethod method = input.PickValueInArray(kMethods);
  auto placeholders = consumePlaceholders(input);
  auto parameters = consumeParameters(input);
  const APIRequest request(endpoint, method, std::move(placeholders), std::move(parameters),
                           std::nullopt, std::nullopt);
  const std::optional<platform::Url> url = request.url();
  if (url) {
    checkUrl(request, *url);
  } else if (!request.path()) {
    // Without placeholder values the stored base and the endpoint path always form a URL.
    __builtin_trap();
  }
  return 0;
}
