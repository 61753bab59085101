#include "LinuxDevice.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <vector>

#include "CNumbers.h"
#include "FileRecheck.h"
#include "LinuxProviders.h"
#include "VendorIdentifier.h"
#include "platform/UserDefaults.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform {
namespace detail {
namespace {

std::string trim(std::string text) {
  const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
  text.erase(std::find_if_not(text.rbegin(), text.rend(), isSpace).base(), text.end());
  text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isSpace));
  return text;
}

// The first line of a small (sysfs-style) file, trimmed; absent when unreadable. Plain system
// calls: a stream costs several times more, and reports read these on every call.
std::optional<std::string> readLine(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  char buffer[4096];
  ssize_t got = 0;
  do {
    got = ::read(fd, buffer, sizeof buffer);
  } while (got < 0 && errno == EINTR);
  ::close(fd);
  if (got <= 0) return std::nullopt;
  const std::string_view text(buffer, static_cast<std::size_t>(got));
  return trim(std::string(text.substr(0, text.find('\n'))));
}

std::optional<double> readNumber(const std::string& path) {
  const std::optional<std::string> text = readLine(path);
  return text ? detail::parseCDecimal(*text) : std::nullopt;
}

// Entries of `directory`, sorted so that the choice among several is stable.
std::vector<std::string> sortedEntries(const std::string& directory) {
  std::vector<std::string> entries;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    entries.push_back(entry.path().string());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

// The value of `key` in os-release text (quotes removed), absent when missing.
std::optional<std::string> osReleaseValue(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.size() <= key.size() || !line.starts_with(key) || line[key.size()] != '=') continue;
    std::string value = trim(std::string(line.substr(key.size() + 1)));
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return std::nullopt;
}

// The whole file's text; absent when it cannot be opened.
std::optional<std::string> fileText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

std::optional<std::string> osReleaseValue(const std::string& file, std::string_view key) {
  const std::optional<std::string> text = fileText(file);
  return text ? osReleaseValue(std::string_view(*text), key) : std::nullopt;
}

utsname unameFields() {
  utsname fields{};
  ::uname(&fields);
  return fields;
}

InterfaceIdiom simulatedIdiom() {
  const char* idiom = std::getenv("ZELNORA_SIM_IDIOM");
  if (idiom == nullptr) return InterfaceIdiom::unspecified;
  if (std::strcmp(idiom, "phone") == 0) return InterfaceIdiom::phone;
  if (std::strcmp(idiom, "pad") == 0) return InterfaceIdiom::pad;
  return InterfaceIdiom::unspecified;
}

std::optional<std::string> findBattery(const std::string& sysDirectory) {
  for (const std::string& supply : sortedEntries(sysDirectory + "/class/power_supply")) {
    if (readLine(supply + "/type") == "Battery") return supply;
  }
  return std::nullopt;
}

// Which power supply is the battery, looked for again at most once per recheck interval (a
// second): listing the supplies cost more than the rest of a report's device facts. The readings
// themselves are read on every call.
class BatteryLocator {
 public:
  explicit BatteryLocator(std::string sysDirectory) : sysDirectory_(std::move(sysDirectory)) {}

  std::optional<std::string> battery() {
    const auto now = std::chrono::steady_clock::now();
    platform::MutexLock lock(mutex_);
    if (recheck_.isDue(now)) {
      battery_ = findBattery(sysDirectory_);
      recheck_.checked(now);
    }
    return battery_;
  }

 private:
  const std::string sysDirectory_;
  Mutex mutex_;
  RecheckTimer recheck_ ZELNORA_GUARDED_BY(mutex_);
  std::optional<std::string> battery_ ZELNORA_GUARDED_BY(mutex_);
};

class LinuxCurrentDevice final : public CurrentDevice {
 public:
  explicit LinuxCurrentDevice(LinuxDeviceFiles files)
      : files_(std::move(files)), batteries_(files_.sysDirectory) {}

  std::string name() override {
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0 && host[0] != '\0') return host;
    return unameFields().nodename;
  }
  std::string systemName() override {
    return osReleaseField("NAME").value_or(unameFields().sysname);
  }
  std::string systemVersion() override {
    return osReleaseField("VERSION_ID").value_or(unameFields().release);
  }
  std::string model() override {
    return simulatedIdiom() == InterfaceIdiom::pad ? "iPad" : "iPhone";
  }
  std::string localizedModel() override { return model(); }

  std::optional<std::string> identifierForVendor() override {
    if (const char* simulated = std::getenv("ZELNORA_SIM_VENDOR_ID"); simulated && *simulated) {
      return canonicalUuid(simulated).value_or(simulated);
    }
    platform::MutexLock lock(vendorMutex_);
    if (!storedVendorId_) {
      const std::string container = files_.containerDirectory.empty() ? appGroupContainerDirectory()
                                                                      : files_.containerDirectory;
      storedVendorId_ = storedVendorIdentifier(container);
    }
    return storedVendorId_;
  }

  bool isBatteryMonitoringEnabled() override { return monitoring_.load(); }
  void setBatteryMonitoringEnabled(bool enabled) override { monitoring_.store(enabled); }

  float batteryLevel() override {
    if (!monitoring_.load()) return -1;
    const std::optional<std::string> battery = batteries_.battery();
    if (!battery) return -1;
    const std::optional<double> percent = readNumber(*battery + "/capacity");
    if (!percent || *percent < 0 || *percent > 100) return -1;
    return static_cast<float>(*percent / 100);
  }

  DeviceBatteryState batteryState() override {
    if (!monitoring_.load()) return DeviceBatteryState::unknown;
    const std::optional<std::string> battery = batteries_.battery();
    if (!battery) return DeviceBatteryState::unknown;
    const std::string status = readLine(*battery + "/status").value_or("");
    // "Not charging": on mains with the charge held back (a charge limit), which the phone
    // still reports as charging.
    if (status == "Charging" || status == "Not charging") return DeviceBatteryState::charging;
    if (status == "Discharging") return DeviceBatteryState::unplugged;
    if (status == "Full") return DeviceBatteryState::full;
    return DeviceBatteryState::unknown;
  }

  // A desktop has no accelerometer.
  DeviceOrientation orientation() override { return DeviceOrientation::portrait; }
  InterfaceIdiom userInterfaceIdiom() override { return simulatedIdiom(); }
  bool isGuidedAccessEnabled() override { return false; }

 private:
  std::optional<std::string> osReleaseField(std::string_view key) {
    // os-release is read for every report, and changes perhaps once in a machine's life.
    const std::optional<std::string> text = osRelease_.get(files_.osReleaseFile, fileText);
    return text ? osReleaseValue(std::string_view(*text), key) : std::nullopt;
  }

  const LinuxDeviceFiles files_;
  KeptFileReading<std::string> osRelease_;
  BatteryLocator batteries_;
  std::atomic<bool> monitoring_{false};
  Mutex vendorMutex_;
  std::optional<std::string> storedVendorId_ ZELNORA_GUARDED_BY(vendorMutex_);  // kept once known
};

class LinuxMainScreen final : public MainScreen {
 public:
  explicit LinuxMainScreen(LinuxDeviceFiles files) : files_(std::move(files)) {}

  double brightness() override {
    for (const std::string& light : sortedEntries(files_.sysDirectory + "/class/backlight")) {
      const std::optional<double> level = readNumber(light + "/brightness");
      const std::optional<double> maximum = readNumber(light + "/max_brightness");
      if (level && maximum && *maximum > 0) return std::clamp(*level / *maximum, 0.0, 1.0);
    }
    return 1.0;
  }
  double scale() override { return 1.0; }
  double nativeScale() override { return 1.0; }

 private:
  const LinuxDeviceFiles files_;
};

// 0 nominal, 1 fair, 2 serious, 3 critical, from a zone's temperature against its trip points
// (millidegrees Celsius): fair within 10 degrees of the passive (throttling) point, serious at it
// or within 5 degrees of the critical point, critical at the critical point.
int zoneThermalState(const std::string& zone) {
  const std::optional<double> temperature = readNumber(zone + "/temp");
  if (!temperature) return 0;
  std::optional<double> passive, critical;
  for (int trip = 0; trip < 32; ++trip) {
    const std::string prefix = zone + "/trip_point_" + std::to_string(trip);
    const std::optional<std::string> type = readLine(prefix + "_type");
    if (!type) break;
    const std::optional<double> at = readNumber(prefix + "_temp");
    if (!at || *at <= 0) continue;
    if (*type == "passive") passive = std::min(passive.value_or(*at), *at);
    if (*type == "critical" || *type == "hot") critical = std::min(critical.value_or(*at), *at);
  }
  if (critical && *temperature >= *critical) return 3;
  if (critical && *temperature >= *critical - 5000) return 2;
  if (passive && *temperature >= *passive) return 2;
  if (passive && *temperature >= *passive - 10000) return 1;
  return 0;
}

OperatingSystemVersion parseVersion(std::string_view text) {
  int parts[3] = {0, 0, 0};
  for (int& part : parts) {
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits]))) ++digits;
    const std::string number(text.substr(0, std::min<std::size_t>(digits, 9)));
    part = number.empty() ? 0 : static_cast<int>(std::strtol(number.c_str(), nullptr, 10));
    const std::size_t dot = text.find('.');
    if (dot == std::string_view::npos) break;
    text.remove_prefix(dot + 1);
  }
  return {parts[0], parts[1], parts[2]};
}

class LinuxProcessInfo final : public ProcessInfo {
 public:
  explicit LinuxProcessInfo(LinuxDeviceFiles files) : files_(std::move(files)) {}

  std::optional<std::string> environment(std::string_view name) override {
    const char* value = std::getenv(std::string(name).c_str());
    if (value == nullptr || name.find('\0') != std::string_view::npos) return std::nullopt;
    return value;
  }
  bool isLowPowerModeEnabled() override {
    return readLine(files_.sysDirectory + "/firmware/acpi/platform_profile") == "low-power";
  }
  int thermalState() override {
    int state = 0;
    for (const std::string& zone : sortedEntries(files_.sysDirectory + "/class/thermal")) {
      if (std::filesystem::path(zone).filename().string().starts_with("thermal_zone")) {
        state = std::max(state, zoneThermalState(zone));
      }
    }
    return state;
  }
  std::string homeDirectory() override {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
      return found->pw_dir;
    }
    return "/";
  }
  OperatingSystemVersion operatingSystemVersion() override {
    const std::optional<std::string> version = osReleaseValue(files_.osReleaseFile, "VERSION_ID");
    return parseVersion(version ? *version : std::string(unameFields().release));
  }

 private:
  const LinuxDeviceFiles files_;
};

std::int64_t saturatedProduct(unsigned long count, unsigned long unit) {
  constexpr auto kMax = static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max());
  if (unit != 0 && count > kMax / unit) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(count * unit);
}

class LinuxSystemInfo final : public SystemInfo {
 public:
  std::array<char, 256> unameMachine() override {
    const utsname fields = unameFields();
    std::array<char, 256> machine{};
    std::memcpy(machine.data(), fields.machine, std::min(sizeof fields.machine, machine.size()));
    return machine;
  }

  std::optional<std::map<VolumeCapacityKey, VolumeValue>> volumeCapacities(
      const std::string& path, const std::vector<VolumeCapacityKey>& keys) override {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
    const std::int64_t total = saturatedProduct(volume.f_blocks, volume.f_frsize);
    const std::int64_t available = saturatedProduct(volume.f_bavail, volume.f_frsize);
    std::map<VolumeCapacityKey, VolumeValue> values;
    for (const VolumeCapacityKey key : keys) {
      // std::int64_t and long are one type here: pick the 64-bit alternative by its index.
      const std::int64_t value =
          key == VolumeCapacityKey::volumeTotalCapacityKey ? total : available;
      values.insert_or_assign(key, VolumeValue(std::in_place_index<0>, value));
    }
    return values;
  }
};

}  // namespace

std::unique_ptr<CurrentDevice> makeLinuxCurrentDevice(LinuxDeviceFiles files) {
  return std::make_unique<LinuxCurrentDevice>(std::move(files));
}
std::unique_ptr<MainScreen> makeLinuxMainScreen(LinuxDeviceFiles files) {
  return std::make_unique<LinuxMainScreen>(std::move(files));
}
std::unique_ptr<ProcessInfo> makeLinuxProcessInfo(LinuxDeviceFiles files) {
  return std::make_unique<LinuxProcessInfo>(std::move(files));
}

}  // namespace detail

namespace linux_provider {
CurrentDevice& currentDevice() {
  static const auto device = detail::makeLinuxCurrentDevice({});
  return *device;
}
MainScreen& mainScreen() {
  static const auto screen = detail::makeLinuxMainScreen({});
  return *screen;
}
ProcessInfo& processInfo() {
  static const auto info = detail::makeLinuxProcessInfo({});
  return *info;
}
SystemInfo& systemInfo() {
  static detail::LinuxSystemInfo info;
  return info;
}
}  // namespace linux_provider

}  // namespace platform
