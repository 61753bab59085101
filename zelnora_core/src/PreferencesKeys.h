// The keys of the application-group suite and the suite-name rule.
#pragma once

#include <optional>
#include <string>

namespace zelnora_core::detail {

inline constexpr const char* kConfigKey = "zelnora_ads_prefs";
inline constexpr const char* kApiConfigKey = "zelnora_ads_api_prefs";
inline constexpr const char* kUserDataKey = "ZA_USER_DATA";
inline constexpr const char* kCustomHeadersKey = "zelnora_ads_custom_headers";
inline constexpr const char* kAdIdKey = "zelnora_ads_ad_id";

// Used in the suite name when the main bundle has no identifier.
inline constexpr const char* kFallbackOrganizationIdentifier = "com.zelnora.ads";

// "group." + identifier (extension suffix removed, or the fallback) + ".za".
std::string suiteNameFor(const std::optional<std::string>& bundleIdentifier);

}  // namespace zelnora_core::detail
