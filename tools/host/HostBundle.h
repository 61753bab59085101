// Writing a host application's bundle (ZelnoraAdsConfig.plist and Info.plist) into a directory:
// the demo's bundle and the integration tests' bundles.
#pragma once

#include <string>

namespace zelnora_host {

struct HostBundleSettings {
  std::string initConfigUrl;  // INIT_CONFIG, e.g. "http://127.0.0.1:PORT/config/{key}"
  std::string apiBaseUrl;     // API_BASE_URL
  std::string vqxBaseUrl;     // VQX_BASE_URL
  std::string bundleIdentifier = "com.zelnora.demo";
  std::string shortVersion = "1.0";
};

// Settings whose three addresses all point to a reference service at `serviceBaseUrl`
// ("http://127.0.0.1:PORT").
HostBundleSettings settingsForService(const std::string& serviceBaseUrl);

// XML property lists (pure).
std::string hostConfigPlistXml(const HostBundleSettings& settings);
std::string infoPlistXml(const HostBundleSettings& settings);

// Writes both files into `directory` (which must exist); false when a file cannot be written.
bool writeHostBundle(const std::string& directory, const HostBundleSettings& settings);

}  // namespace zelnora_host
