/// \file
/// The device model value of the catalog: which Apple model a machine identifier names, the model's
/// names and fixed capabilities and, for the device the program runs on, its live status.
///
/// \code
/// using DeviceCatalog::Device;
/// Device device = Device::mapToDevice("iPhone15,2");  // Device::iPhone14Pro
/// bool faceId = device.isFaceIDCapable();
/// std::string name = Device::current().safeDescription();
/// \endcode
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DeviceCatalog/ApplePencilSupport.h"
#include "DeviceCatalog/BatteryState.h"
#include "DeviceCatalog/CPU.h"
#include "DeviceCatalog/ModelCases.h"
#include "DeviceCatalog/export.h"
#include "platform/Device.h"

namespace DeviceCatalog {

namespace detail {
struct DeviceAccess;
}  // namespace detail

/// A value type: one of the 75 model cases, `simulator(device)` (the program runs in a simulator
/// imitating `device`, nesting to any depth) or `unknown(identifier)` (a machine identifier the
/// catalog does not know). Two values are equal exactly when their descriptions are equal.
/// Everything here may be called from any thread; see `setIdentifier` for its one ordering rule.
class ZELNORA_DEVICECATALOG_EXPORT Device {
 public:
  enum class Model : unsigned char {
#define DEVICECATALOG_MODEL_ENUMERATOR(name) name,
    DEVICECATALOG_FOR_EACH_MODEL(DEVICECATALOG_MODEL_ENUMERATOR)
#undef DEVICECATALOG_MODEL_ENUMERATOR
  };
  static constexpr std::size_t kModelCount = static_cast<std::size_t>(Model::homePod) + 1;

  enum class Kind { model, simulator, unknown };

  /// The per-model camera lists hold only `wide`, `telephoto` and `ultraWide`; `normal` is never
  /// produced (the members named after the normal camera look for `wide`).
  enum class CameraType { normal, wide, telephoto, ultraWide };
  /// Platform thermal state codes 0 to 3, in this order.
  enum class ThermalState { nominal, fair, serious, critical };
  /// The platform's six orientation codes folded into two (see `orientation()`).
  enum class Orientation { landscape, portrait };
  struct ScreenRatio {
    double width;
    double height;
    friend bool operator==(const ScreenRatio&, const ScreenRatio&) = default;
  };

  using CPU = DeviceCatalog::CPU;
  using BatteryState = DeviceCatalog::BatteryState;
  using ApplePencilSupport = DeviceCatalog::ApplePencilSupport;
  using VolumeCapacityKey = platform::VolumeCapacityKey;

  // One constant per model case: `Device::iPhone15ProMax`, `Device::homePod`, ...
#define DEVICECATALOG_MODEL_CONSTANT(name) static const Device name;
  DEVICECATALOG_FOR_EACH_MODEL(DEVICECATALOG_MODEL_CONSTANT)
#undef DEVICECATALOG_MODEL_CONSTANT

  /// Implicit, so that a `Model` reads as the device it names.
  constexpr Device(Model model) : model_(model) {}  // NOLINT(google-explicit-constructor)
  /// The program runs in a simulator that imitates `simulated`.
  static Device simulator(Device simulated);
  /// A machine identifier the table does not know, carried exactly as given.
  static Device unknown(std::string_view identifier);

  Kind kind() const;  ///< which of the three forms this value has
  /// The model case of a `model` value; absent for `simulator` and `unknown` values.
  std::optional<Model> modelCase() const;
  /// The identifier of an `unknown` value; absent for the other kinds.
  std::optional<std::string_view> unknownIdentifier() const;

  // ---- Identification ----

  /// The machine identifier of the device the program runs on. The first access (read or write)
  /// reads the kernel's machine name once, even with concurrent first readers; later reads return
  /// the stored text.
  static std::string identifier();
  /// Replaces the stored identifier for the rest of the process, so that `current()` maps the new
  /// text. Any thread; a concurrent reader sees the old text or the new one. The replaced text is
  /// freed once no reader holds it.
  static void setIdentifier(std::string identifier);
  /// `mapToDevice(identifier())`, mapped afresh on every call.
  static Device current();
  /// The table lookup (exact, case-sensitive). "i386", "x86_64" and "arm64" take the simulator
  /// rule: the environment's "SIMULATOR_MODEL_IDENTIFIER" ("iOS" when unset) is looked up one level
  /// deep and wrapped as `simulator`; a variable naming one of those three again yields
  /// `simulator(unknown(variable))`. Anything else is `unknown(identifier)`.
  static Device mapToDevice(std::string_view identifier);
  /// Removes one `simulator` level; any other value is returned unchanged.
  static Device realDevice(const Device& from);
  Device real() const { return realDevice(*this); }

  /// Whether any element equals this value (first match wins; an empty list gives false).
  bool isOneOf(std::initializer_list<Device> devices) const;
  bool isOneOf(const std::vector<Device>& devices) const;

  /// Equality of descriptions: model cases compare by case, `unknown("iPhone X")` equals
  /// `iPhoneX`, `simulator(x)` equals `simulator(y)` exactly when x equals y.
  friend bool operator==(const Device& lhs, const Device& rhs);

  // ---- Descriptions ----

  /// The marketing name ("iPhone Xʀ" ends in U+0280); "Simulator (…)" around a simulated device;
  /// the identifier itself for `unknown`.
  std::string description() const;
  /// The same with ASCII letters only ("iPhone XR", "iPhone XS", "iPhone XS Max").
  std::string safeDescription() const;

  // ---- Capability groups (in model order; every member once) ----
  // Each names its members; the lists are built once and live for the process.

  static const std::vector<Device>& allPods();
  static const std::vector<Device>& allPhones();
  static const std::vector<Device>& allPads();
  static const std::vector<Device>& allXSeriesDevices();
  static const std::vector<Device>& allPlusSizedDevices();
  static const std::vector<Device>& allProDevices();
  static const std::vector<Device>& allMiniDevices();
  static const std::vector<Device>& allDevicesWithSensorHousing();
  static const std::vector<Device>& allTouchIDCapableDevices();
  static const std::vector<Device>& allFaceIDCapableDevices();
  static const std::vector<Device>& allBiometricAuthenticationCapableDevices();
  static const std::vector<Device>& allDevicesWithRoundedDisplayCorners();
  static const std::vector<Device>& allDevicesWith3dTouchSupport();
  static const std::vector<Device>& allDevicesWithWirelessChargingSupport();
  static const std::vector<Device>& allDevicesWithALidarSensor();
  static const std::vector<Device>& allApplePencilCapableDevices();
  static const std::vector<Device>& allDevicesWithCamera();
  static const std::vector<Device>& allDevicesWithNormalCamera();
  static const std::vector<Device>& allDevicesWithWideCamera();
  static const std::vector<Device>& allDevicesWithTelephotoCamera();
  static const std::vector<Device>& allDevicesWithUltraWideCamera();
  /// allPods, then allPhones, then allPads (homePod is not among them).
  static const std::vector<Device>& allRealDevices();
  /// The group of the same name without "Simulator", each member wrapped as `simulator(member)`.
  static const std::vector<Device>& allSimulators();
  static const std::vector<Device>& allSimulatorPods();
  static const std::vector<Device>& allSimulatorPhones();
  static const std::vector<Device>& allSimulatorPads();
  static const std::vector<Device>& allSimulatorXSeriesDevices();
  static const std::vector<Device>& allSimulatorPlusSizedDevices();
  static const std::vector<Device>& allSimulatorProDevices();
  static const std::vector<Device>& allSimulatorMiniDevices();
  static const std::vector<Device>& allSimulatorDevicesWithSensorHousing();

  // ---- Predicates ----
  // Feature predicates: member of the group, or of the group with every member wrapped as
  // `simulator(member)` (so a doubly wrapped value is not a member).

  bool isPod() const;  ///< member of allPods
  /// Listed as a phone, or the current device on a platform reporting the phone idiom; never a pod.
  bool isPhone() const;
  /// Listed as a pad, or the current device on a platform reporting the pad idiom.
  bool isPad() const;
  /// A member of allSimulators (simulator(homePod) and simulator(unknown(...)) are not).
  bool isSimulator() const;
  bool isTouchIDCapable() const;          ///< member of allTouchIDCapableDevices
  bool isFaceIDCapable() const;           ///< member of allFaceIDCapableDevices
  bool hasBiometricSensor() const;        ///< isTouchIDCapable() or isFaceIDCapable()
  bool hasSensorHousing() const;          ///< member of allDevicesWithSensorHousing
  bool hasRoundedDisplayCorners() const;  ///< member of allDevicesWithRoundedDisplayCorners
  bool has3dTouchSupport() const;         ///< member of allDevicesWith3dTouchSupport
  bool supportsWirelessCharging() const;  ///< member of allDevicesWithWirelessChargingSupport
  bool hasLidarSensor() const;            ///< member of allDevicesWithALidarSensor
  /// The camera predicates read `cameras()`, which is empty for every simulator value.
  bool hasCamera() const;           ///< any camera
  bool hasNormalCamera() const;     ///< a `wide` camera (see CameraType)
  bool hasWideCamera() const;       ///< a `wide` camera
  bool hasTelephotoCamera() const;  ///< a `telephoto` camera
  bool hasUltraWideCamera() const;  ///< an `ultraWide` camera

  // ---- Model facts ----
  // All but `cameras` look through any number of simulator levels; `unknown` gives the fallback
  // named on each.

  CPU cpu() const;                                ///< CPU::unknown
  std::vector<CameraType> cameras() const;        ///< empty (and empty for any simulator value)
  ApplePencilSupport applePencilSupport() const;  ///< the empty set
  double diagonal() const;                        ///< inches; -1
  ScreenRatio screenRatio() const;                ///< width : height; {-1, -1}
  std::optional<int> ppi() const;                 ///< absent (homePod: -1)

  // ---- Live status ----
  // Members marked "current only" answer absent unless this value equals `current()`; the others
  // read the platform for the device the program runs on whatever this value is.

  std::optional<std::string> name() const;  ///< current only
  /// current only; "iPadOS" for an iPad on system 13.0 or later whose platform name is "iOS".
  std::optional<std::string> systemName() const;
  std::optional<std::string> systemVersion() const;   ///< current only
  std::optional<std::string> model() const;           ///< current only
  std::optional<std::string> localizedModel() const;  ///< current only
  /// current only; enables battery monitoring for the reading and restores the previous switch.
  std::optional<BatteryState> batteryState() const;
  /// current only; the level of `batteryState()`, 100 when full.
  std::optional<int> batteryLevel() const;
  std::optional<ThermalState> thermalState() const;  ///< current only; unknown codes: nominal
  std::optional<bool> isZoomed() const;              ///< current only; display zoom
  std::optional<bool> isCanvas() const;              ///< current only; always false
  Orientation orientation() const;                   ///< landscape for codes 3 and 4 only
  int screenBrightness() const;                      ///< percent, fraction dropped
  bool isGuidedAccessSessionActive() const;          ///< the platform's guided-access switch

  /// Capacities in bytes of the volume holding the home directory; absent when the query fails or
  /// gives no value.
  static std::optional<std::int64_t> volumeTotalCapacity();
  static std::optional<std::int64_t> volumeAvailableCapacity();
  static std::optional<std::int64_t> volumeAvailableCapacityForImportantUsage();
  static std::optional<std::int64_t> volumeAvailableCapacityForOpportunisticUsage();
  /// All four keys in one query: absent when it fails, otherwise one entry per key the platform
  /// answered (a value of an unexpected type counts as 0).
  static std::optional<std::map<VolumeCapacityKey, std::int64_t>> volumes();

 private:
  /// The innermost value's model case; meaningful only when `isUnknown_` is false.
  Model model_ = Model::iPodTouch5;
  bool isUnknown_ = false;
  /// How many `simulator` levels wrap the innermost value.
  std::size_t simulatorDepth_ = 0;
  /// The innermost `unknown` identifier: a short one (nearly all are) in place, so that copying
  /// the value never allocates (Device::current() is copied for every predicate); a longer one in
  /// the vector. An array and a vector rather than a string keep the model constants
  /// constant-initialised with every toolchain we build with.
  static constexpr std::size_t kInlineIdentifierBytes = 31;
  std::array<char, kInlineIdentifierBytes> unknownInline_{};
  std::uint8_t unknownInlineSize_ = 0;
  std::vector<char> unknownLong_;

  friend struct detail::DeviceAccess;
};

#define DEVICECATALOG_MODEL_CONSTANT(name) \
  inline constexpr Device Device::name{Device::Model::name};
DEVICECATALOG_FOR_EACH_MODEL(DEVICECATALOG_MODEL_CONSTANT)
#undef DEVICECATALOG_MODEL_CONSTANT

/// Writes `description()`.
ZELNORA_DEVICECATALOG_EXPORT std::ostream& operator<<(std::ostream& out, const Device& device);

}  // namespace DeviceCatalog
