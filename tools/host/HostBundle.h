// Writing a host application's bundle (ZelnoraAdsConfig.plist and Info.plist) into a directory:
// the demo's bundle and the integration tests' bundles; and a throw-away host for the demo and the
// load runs.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

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

// A temporary directory holding a host bundle ("bundle") and the kit's data ("data"), removed with
// everything in it when the value goes away.
class ScratchHost {
 public:
  // Makes the directory under the system's temporary directory, its name starting with `prefix`.
  explicit ScratchHost(std::string_view prefix);
  ~ScratchHost();
  ScratchHost(const ScratchHost&) = delete;
  ScratchHost& operator=(const ScratchHost&) = delete;

  // Empty when the directory could not be made.
  const std::filesystem::path& root() const { return root_; }

  // Writes the bundle for a reference service at `serviceBaseUrl` and makes this process's kit
  // use it and the data directory (main bundle directory, XDG_DATA_HOME); false when it cannot.
  bool prepare(const std::string& serviceBaseUrl) const;

 private:
  std::filesystem::path root_;
};

}  // namespace zelnora_host
