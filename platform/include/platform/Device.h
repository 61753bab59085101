/// \file
/// The device the program runs on: what UIKit's current device, main screen and process
/// information give on a phone.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/export.h"

namespace platform {

/// Interface idiom codes, as the phone numbers them.
enum class InterfaceIdiom : int { unspecified = -1, phone = 0, pad = 1 };

/// Battery state codes, as the phone numbers them. A provider may hand out another number; readers
/// treat it as unknown.
enum class DeviceBatteryState : int { unknown = 0, unplugged = 1, charging = 2, full = 3 };

/// Device orientation codes, as the phone numbers them. Other numbers read as not landscape.
enum class DeviceOrientation : int {
  unknown = 0,
  portrait = 1,
  portraitUpsideDown = 2,
  landscapeLeft = 3,
  landscapeRight = 4,
  faceUp = 5,
  faceDown = 6,
};

class ZELNORA_PLATFORM_EXPORT CurrentDevice {
 public:
  virtual ~CurrentDevice() = default;
  CurrentDevice() = default;
  CurrentDevice(const CurrentDevice&) = delete;
  CurrentDevice& operator=(const CurrentDevice&) = delete;

  virtual std::string name() = 0;
  virtual std::string systemName() = 0;
  virtual std::string systemVersion() = 0;
  virtual std::string model() = 0;
  virtual std::string localizedModel() = 0;
  /// The vendor identifier as canonical UUID text (upper-case, 8-4-4-4-12), absent when unknown.
  virtual std::optional<std::string> identifierForVendor() = 0;
  virtual bool isBatteryMonitoringEnabled() = 0;
  virtual void setBatteryMonitoringEnabled(bool enabled) = 0;
  /// 0 to 1, or -1 when unknown (always -1 while monitoring is off).
  virtual float batteryLevel() = 0;
  /// Always `unknown` while monitoring is off.
  virtual DeviceBatteryState batteryState() = 0;
  virtual DeviceOrientation orientation() = 0;
  virtual InterfaceIdiom userInterfaceIdiom() = 0;
  virtual bool isGuidedAccessEnabled() = 0;
};

class ZELNORA_PLATFORM_EXPORT MainScreen {
 public:
  virtual ~MainScreen() = default;
  MainScreen() = default;
  MainScreen(const MainScreen&) = delete;
  MainScreen& operator=(const MainScreen&) = delete;

  virtual double brightness() = 0;  ///< 0 to 1
  virtual double scale() = 0;
  virtual double nativeScale() = 0;
};

struct ZELNORA_PLATFORM_EXPORT OperatingSystemVersion {
  int majorVersion = 0, minorVersion = 0, patchVersion = 0;
};

class ZELNORA_PLATFORM_EXPORT ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;
  ProcessInfo() = default;
  ProcessInfo(const ProcessInfo&) = delete;
  ProcessInfo& operator=(const ProcessInfo&) = delete;

  /// The process environment variable `name`, absent when unset.
  virtual std::optional<std::string> environment(std::string_view name) = 0;
  virtual bool isLowPowerModeEnabled() = 0;
  /// 0 nominal, 1 fair, 2 serious, 3 critical.
  virtual int thermalState() = 0;
  virtual std::string homeDirectory() = 0;
  virtual OperatingSystemVersion operatingSystemVersion() = 0;
};

/// Resource keys of the volume-capacity query.
enum class VolumeCapacityKey {
  volumeAvailableCapacityForImportantUsageKey,
  volumeAvailableCapacityKey,
  volumeAvailableCapacityForOpportunisticUsageKey,
  volumeTotalCapacityKey,
};

/// A resource value as the platform hands it back: a 64-bit integer, a narrower native integer
/// (widened by readers), or a value of another type (read as 0). Index 0, 1 and 2 respectively.
using VolumeValue = std::variant<std::int64_t, int, std::string>;

class ZELNORA_PLATFORM_EXPORT SystemInfo {
 public:
  virtual ~SystemInfo() = default;
  SystemInfo() = default;
  SystemInfo(const SystemInfo&) = delete;
  SystemInfo& operator=(const SystemInfo&) = delete;

  /// The `machine` field of a zero-filled utsname after uname(), all 256 bytes.
  virtual std::array<char, 256> unameMachine() = 0;
  /// Resource values of the volume holding `path` for `keys`: absent when the query fails; a key
  /// the platform gives no value for is missing from the map.
  virtual std::optional<std::map<VolumeCapacityKey, VolumeValue>> volumeCapacities(
      const std::string& path, const std::vector<VolumeCapacityKey>& keys) = 0;
};

}  // namespace platform
