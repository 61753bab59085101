#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "FileRecheck.h"
#include "LinuxProviders.h"
#include "platform/Bundle.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace {

// Usable from a host's static initialiser, before or after this file's: the mutex is
// constant-initialised and the text is made on first use (and never destroyed).
constinit Mutex directoryMutex;
std::string& configuredDirectory() ZELNORA_REQUIRES(directoryMutex) {
  static auto* const directory = new std::string();
  return *directory;
}

std::string executableDirectory() {
  std::string path(4096, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) return ".";
  path.resize(static_cast<std::size_t>(length));
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string bundleDirectory() {
  {
    MutexLock lock(directoryMutex);
    if (!configuredDirectory().empty()) return configuredDirectory();
  }
  static const std::string fallback = executableDirectory();
  return fallback;
}

bool isRegularFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

class DirectoryMainBundle final : public MainBundle {
 public:
  std::optional<std::string> pathForResource(std::string_view name,
                                             std::string_view type) override {
    std::string path = bundleDirectory() + "/" + std::string(name);
    if (!type.empty()) path += "." + std::string(type);
    if (!isRegularFile(path)) return std::nullopt;
    return path;
  }

  // Every report asks for the info dictionary several times; the file is parsed again only when
  // a stat shows that it changed, and stat-ed at most once per recheck interval (at once when the
  // bundle directory is another).
  std::optional<PropertyDictionary> infoDictionary() override {
    return info_.get(bundleDirectory() + "/Info.plist", [](const std::string& path) {
      std::optional<PropertyValue> info = linux_provider::propertyListReader().readFile(path);
      if (!info || info->dictionary() == nullptr) return std::optional<PropertyDictionary>();
      return std::optional<PropertyDictionary>(
          std::get<PropertyDictionary>(std::move(info->value)));
    });
  }

  std::optional<std::string> bundleIdentifier() override {
    const std::optional<PropertyDictionary> info = infoDictionary();
    if (!info) return std::nullopt;
    const auto entry = info->find("CFBundleIdentifier");
    if (entry == info->end() || entry->second.string() == nullptr) return std::nullopt;
    return *entry->second.string();
  }

 private:
  detail::KeptFileReading<PropertyDictionary> info_;
};

class BuildConstantsKitBundle final : public KitBundle {
 public:
  std::optional<PropertyValue> objectForInfoDictionaryKey(std::string_view key) override {
    if (key == "CFBundleShortVersionString") return PropertyValue(ZELNORA_SHORT_VERSION);
    if (key == "CFBundleVersion") return PropertyValue(ZELNORA_BUILD_NUMBER);
    return std::nullopt;
  }
};

}  // namespace

void setMainBundleDirectory(std::string directory) {
  MutexLock lock(directoryMutex);
  configuredDirectory() = std::move(directory);
}

namespace linux_provider {
MainBundle& mainBundle() {
  static DirectoryMainBundle bundle;
  return bundle;
}

KitBundle& kitBundle() {
  static BuildConstantsKitBundle bundle;
  return bundle;
}
}  // namespace linux_provider

}  // namespace platform
