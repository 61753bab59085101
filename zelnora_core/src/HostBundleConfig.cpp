#include "HostBundleConfig.h"

#include "platform/Services.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core::detail {
namespace {

std::string requireString(const platform::PropertyDictionary& plist, const std::string& key) {
  auto it = plist.find(key);
  if (it == plist.end() || it->second.string() == nullptr) {
    platform::fatalError("Missing plist key " + key);
  }
  return *it->second.string();
}

}  // namespace

ZAPIConfig loadFromBundle(std::optional<bool>* durableReports) {
  std::optional<platform::PropertyValue> contents;
  if (auto path = platform::mainBundle().pathForResource("ZelnoraAdsConfig", "plist")) {
    contents = platform::propertyLists().readFile(*path);
  }
  if (!contents || contents->dictionary() == nullptr) {
    platform::fatalError("ZelnoraAdsConfig plist not found");
  }
  const auto& plist = *contents->dictionary();
  ZAPIConfig config;
  config.initConfigUrl = requireString(plist, "INIT_CONFIG");
  config.apiBaseUrl = requireString(plist, "API_BASE_URL");
  config.vqxBaseUrl = requireString(plist, "VQX_BASE_URL");
  ZAPreferencesUtil::saveApiConfig(config);
  if (durableReports != nullptr) {
    auto it = plist.find("DURABLE_REPORTS");
    const bool* flag = it == plist.end() ? nullptr : std::get_if<bool>(&it->second.value);
    *durableReports = flag != nullptr ? std::optional<bool>(*flag) : std::nullopt;
  }
  return config;
}

}  // namespace zelnora_core::detail
