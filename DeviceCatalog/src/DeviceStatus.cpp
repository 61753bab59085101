// The live status members: read from the platform on every access, most of them only for the
// device the program runs on.
#include <cmath>
#include <limits>

#include "DeviceAccess.h"
#include "DeviceCatalog/Device.h"
#include "platform/Services.h"

namespace DeviceCatalog {
namespace {

using platform::DeviceBatteryState;
using platform::DeviceOrientation;

// Converts a platform reading to a whole number without undefined behaviour: values beyond the
// int range saturate, NaN becomes `whenNotANumber`.
int saturatingInt(double value, int whenNotANumber) {
  if (std::isnan(value)) return whenNotANumber;
  if (value <= static_cast<double>(std::numeric_limits<int>::min())) {
    return std::numeric_limits<int>::min();
  }
  if (value >= static_cast<double>(std::numeric_limits<int>::max())) {
    return std::numeric_limits<int>::max();
  }
  return static_cast<int>(value);
}

// The battery level in percent: the reading times 100 in single precision, rounded to nearest
// with halves away from zero. A reading that is not a number counts as unknown (-1, so -100).
int batteryPercent(float level) {
  if (std::isnan(level)) level = -1.0f;
  const float percent = level * 100.0f;
  return saturatingInt(static_cast<double>(std::round(percent)), -100);
}

BatteryState readBattery() {
  platform::CurrentDevice& device = platform::currentDevice();
  const bool wasMonitoring = device.isBatteryMonitoringEnabled();
  device.setBatteryMonitoringEnabled(true);
  const int level = batteryPercent(device.batteryLevel());
  const DeviceBatteryState code = device.batteryState();
  device.setBatteryMonitoringEnabled(wasMonitoring);
  if (code == DeviceBatteryState::charging) return BatteryState::charging(level);
  if (code == DeviceBatteryState::unplugged) return BatteryState::unplugged(level);
  return BatteryState::full();  // full, unknown and codes the platform does not define
}

bool isSystemVersion13OrLater() {
  return platform::processInfo().operatingSystemVersion().majorVersion >= 13;
}

// The path the volume queries ask about: the home directory, taken once.
const std::string& volumeRootPath() {
  static const std::string root = platform::processInfo().homeDirectory();
  return root;
}

// A resource value as a byte count: the 64-bit alternative unchanged, the native-width one widened;
// absent for a value of any other type.
std::optional<std::int64_t> byteCount(const platform::VolumeValue& value) {
  switch (value.index()) {
    case 0: return std::get<0>(value);
    case 1: return static_cast<std::int64_t>(std::get<1>(value));
    default: return std::nullopt;
  }
}

std::optional<std::int64_t> singleVolumeCapacity(platform::VolumeCapacityKey key) {
  auto values = platform::systemInfo().volumeCapacities(volumeRootPath(), {key});
  if (!values) return std::nullopt;
  auto found = values->find(key);
  if (found == values->end()) return std::nullopt;
  return byteCount(found->second);
}

}  // namespace

std::optional<std::string> Device::name() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return platform::currentDevice().name();
}

std::optional<std::string> Device::systemName() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  std::string name = platform::currentDevice().systemName();
  if (name == "iOS" && isPad() && isSystemVersion13OrLater()) return "iPadOS";
  return name;
}

std::optional<std::string> Device::systemVersion() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return platform::currentDevice().systemVersion();
}

std::optional<std::string> Device::model() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return platform::currentDevice().model();
}

std::optional<std::string> Device::localizedModel() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return platform::currentDevice().localizedModel();
}

std::optional<BatteryState> Device::batteryState() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return readBattery();
}

std::optional<int> Device::batteryLevel() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return readBattery().level();
}

std::optional<Device::ThermalState> Device::thermalState() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  switch (platform::processInfo().thermalState()) {
    case 1: return ThermalState::fair;
    case 2: return ThermalState::serious;
    case 3: return ThermalState::critical;
    default: return ThermalState::nominal;
  }
}

std::optional<bool> Device::isZoomed() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  platform::MainScreen& screen = platform::mainScreen();
  const double scale = screen.scale();
  const double nativeScale = screen.nativeScale();
  if (std::round(scale) == 3.0) return nativeScale > 2.7 && nativeScale < 3.0;
  return nativeScale > scale;
}

std::optional<bool> Device::isCanvas() const {
  if (!detail::isCurrentDevice(*this)) return std::nullopt;
  return false;
}

Device::Orientation Device::orientation() const {
  const DeviceOrientation code = platform::currentDevice().orientation();
  const bool landscape =
      code == DeviceOrientation::landscapeLeft || code == DeviceOrientation::landscapeRight;
  return landscape ? Orientation::landscape : Orientation::portrait;
}

int Device::screenBrightness() const {
  return saturatingInt(platform::mainScreen().brightness() * 100.0, 0);
}

bool Device::isGuidedAccessSessionActive() const {
  return platform::currentDevice().isGuidedAccessEnabled();
}

std::optional<std::int64_t> Device::volumeTotalCapacity() {
  return singleVolumeCapacity(VolumeCapacityKey::volumeTotalCapacityKey);
}

std::optional<std::int64_t> Device::volumeAvailableCapacity() {
  return singleVolumeCapacity(VolumeCapacityKey::volumeAvailableCapacityKey);
}

std::optional<std::int64_t> Device::volumeAvailableCapacityForImportantUsage() {
  return singleVolumeCapacity(VolumeCapacityKey::volumeAvailableCapacityForImportantUsageKey);
}

std::optional<std::int64_t> Device::volumeAvailableCapacityForOpportunisticUsage() {
  return singleVolumeCapacity(VolumeCapacityKey::volumeAvailableCapacityForOpportunisticUsageKey);
}

std::optional<std::map<Device::VolumeCapacityKey, std::int64_t>> Device::volumes() {
  const std::vector<VolumeCapacityKey> keys = {
      VolumeCapacityKey::volumeAvailableCapacityForImportantUsageKey,
      VolumeCapacityKey::volumeAvailableCapacityKey,
      VolumeCapacityKey::volumeAvailableCapacityForOpportunisticUsageKey,
      VolumeCapacityKey::volumeTotalCapacityKey,
  };
  auto values = platform::systemInfo().volumeCapacities(volumeRootPath(), keys);
  if (!values) return std::nullopt;
  std::map<VolumeCapacityKey, std::int64_t> capacities;
  for (const auto& [key, value] : *values) capacities.emplace(key, byteCount(value).value_or(0));
  return capacities;
}

}  // namespace DeviceCatalog
