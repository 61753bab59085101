#include "HostBundle.h"

#include <stdlib.h>

#include <fstream>
#include <initializer_list>
#include <system_error>
#include <utility>

#include "platform/Bundle.h"

namespace zelnora_host {
namespace {

std::string xmlEscaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

std::string plistOfStrings(std::initializer_list<std::pair<const char*, std::string>> entries) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n<dict>\n";
  for (const auto& [key, value] : entries) {
    xml += "\t<key>" + xmlEscaped(key) + "</key>\n\t<string>" + xmlEscaped(value) + "</string>\n";
  }
  return xml + "</dict>\n</plist>\n";
}

bool writeFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  return static_cast<bool>(file.flush());
}

}  // namespace

HostBundleSettings settingsForService(const std::string& serviceBaseUrl) {
  HostBundleSettings settings;
  settings.initConfigUrl = serviceBaseUrl + "/config/{key}";
  settings.apiBaseUrl = serviceBaseUrl;
  settings.vqxBaseUrl = serviceBaseUrl;
  return settings;
}

std::string hostConfigPlistXml(const HostBundleSettings& settings) {
  return plistOfStrings({{"INIT_CONFIG", settings.initConfigUrl},
                         {"API_BASE_URL", settings.apiBaseUrl},
                         {"VQX_BASE_URL", settings.vqxBaseUrl}});
}

std::string infoPlistXml(const HostBundleSettings& settings) {
  return plistOfStrings({{"CFBundleIdentifier", settings.bundleIdentifier},
                         {"CFBundleShortVersionString", settings.shortVersion}});
}

bool writeHostBundle(const std::string& directory, const HostBundleSettings& settings) {
  return writeFile(directory + "/ZelnoraAdsConfig.plist", hostConfigPlistXml(settings)) &&
         writeFile(directory + "/Info.plist", infoPlistXml(settings));
}

ScratchHost::ScratchHost(std::string_view prefix) {
  std::string pattern =
      (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) != nullptr) root_ = pattern;
}

ScratchHost::~ScratchHost() {
  std::error_code ignored;
  if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
}

bool ScratchHost::prepare(const std::string& serviceBaseUrl) const {
  if (root_.empty()) return false;
  std::error_code failed;
  std::filesystem::create_directories(root_ / "bundle", failed);
  std::filesystem::create_directories(root_ / "data", failed);
  if (failed || !writeHostBundle((root_ / "bundle").string(), settingsForService(serviceBaseUrl))) {
    return false;
  }
  ::setenv("XDG_DATA_HOME", (root_ / "data").c_str(), 1);
  platform::setMainBundleDirectory((root_ / "bundle").string());
  return true;
}

}  // namespace zelnora_host
