// The capability groups, predicates and per-model facts, all read from the model table.
#include "DeviceAccess.h"
#include "DeviceCatalog/Device.h"
#include "ModelTable.h"
#include "platform/Services.h"

namespace DeviceCatalog {
namespace {

using detail::DeviceAccess;
using detail::Family;
using detail::ModelRow;
using RowTest = bool (*)(const ModelRow&);

constexpr bool isPodRow(const ModelRow& row) { return row.family == Family::pod; }
constexpr bool isPhoneRow(const ModelRow& row) { return row.family == Family::phone; }
constexpr bool isPadRow(const ModelRow& row) { return row.family == Family::pad; }
constexpr bool isRealDeviceRow(const ModelRow& row) { return row.family != Family::accessory; }

template <detail::Features feature>
constexpr bool hasFeature(const ModelRow& row) {
  return (row.features & feature) != 0;
}

constexpr bool isBiometricRow(const ModelRow& row) {
  return (row.features & (detail::kTouchID | detail::kFaceID)) != 0;
}

constexpr bool isPencilCapableRow(const ModelRow& row) { return row.applePencilSupport != 0; }

template <detail::Cameras camera>
constexpr bool hasCameraRow(const ModelRow& row) {
  return (row.cameras & camera) != 0;
}

constexpr bool hasAnyCameraRow(const ModelRow& row) { return row.cameras != detail::kNoCamera; }

std::vector<Device> modelsWhere(RowTest test) {
  std::vector<Device> devices;
  for (const ModelRow& row : detail::kModelTable) {
    if (test(row)) devices.emplace_back(row.model);
  }
  return devices;
}

std::vector<Device> simulatorsOf(const std::vector<Device>& devices) {
  std::vector<Device> simulators;
  simulators.reserve(devices.size());
  for (const Device& device : devices) simulators.push_back(Device::simulator(device));
  return simulators;
}

// The group rule: a member of the group, or of the group with every member wrapped as a
// simulator. Equality is by description, so an `unknown` spelling a member's name counts too.
bool isListedOrSimulated(const Device& device, RowTest test) {
  const ModelRow* row = DeviceAccess::listedOrSimulatedRow(device);
  return row != nullptr && test(*row);
}

// The camera bits of a model value; every simulator and unknown value has no camera.
detail::Cameras cameraBits(const Device& device) {
  if (DeviceAccess::simulatorDepth(device) > 0) return detail::kNoCamera;
  const ModelRow* row = DeviceAccess::innermostRow(device);
  return row != nullptr ? row->cameras : detail::kNoCamera;
}

}  // namespace

#define DEVICECATALOG_GROUP(name, rows)                         \
  const std::vector<Device>& Device::name() {                   \
    static const std::vector<Device> group = modelsWhere(rows); \
    return group;                                               \
  }
#define DEVICECATALOG_SIMULATOR_GROUP(name, group)                       \
  const std::vector<Device>& Device::name() {                            \
    static const std::vector<Device> simulators = simulatorsOf(group()); \
    return simulators;                                                   \
  }

DEVICECATALOG_GROUP(allPods, isPodRow)
DEVICECATALOG_GROUP(allPhones, isPhoneRow)
DEVICECATALOG_GROUP(allPads, isPadRow)
DEVICECATALOG_GROUP(allXSeriesDevices, hasFeature<detail::kXSeries>)
DEVICECATALOG_GROUP(allPlusSizedDevices, hasFeature<detail::kPlusSized>)
DEVICECATALOG_GROUP(allProDevices, hasFeature<detail::kPro>)
DEVICECATALOG_GROUP(allMiniDevices, hasFeature<detail::kMini>)
DEVICECATALOG_GROUP(allDevicesWithSensorHousing, hasFeature<detail::kSensorHousing>)
DEVICECATALOG_GROUP(allTouchIDCapableDevices, hasFeature<detail::kTouchID>)
DEVICECATALOG_GROUP(allFaceIDCapableDevices, hasFeature<detail::kFaceID>)
DEVICECATALOG_GROUP(allBiometricAuthenticationCapableDevices, isBiometricRow)
DEVICECATALOG_GROUP(allDevicesWithRoundedDisplayCorners, hasFeature<detail::kRoundedCorners>)
DEVICECATALOG_GROUP(allDevicesWith3dTouchSupport, hasFeature<detail::k3dTouch>)
DEVICECATALOG_GROUP(allDevicesWithWirelessChargingSupport, hasFeature<detail::kWirelessCharging>)
DEVICECATALOG_GROUP(allDevicesWithALidarSensor, hasFeature<detail::kLidar>)
DEVICECATALOG_GROUP(allApplePencilCapableDevices, isPencilCapableRow)
DEVICECATALOG_GROUP(allDevicesWithCamera, hasAnyCameraRow)
DEVICECATALOG_GROUP(allDevicesWithNormalCamera, hasCameraRow<detail::kWide>)
DEVICECATALOG_GROUP(allDevicesWithWideCamera, hasCameraRow<detail::kWide>)
DEVICECATALOG_GROUP(allDevicesWithTelephotoCamera, hasCameraRow<detail::kTelephoto>)
DEVICECATALOG_GROUP(allDevicesWithUltraWideCamera, hasCameraRow<detail::kUltraWide>)
// Pods, phones and pads follow each other in the table, so table order is their joined order.
DEVICECATALOG_GROUP(allRealDevices, isRealDeviceRow)

DEVICECATALOG_SIMULATOR_GROUP(allSimulators, allRealDevices)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorPods, allPods)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorPhones, allPhones)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorPads, allPads)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorXSeriesDevices, allXSeriesDevices)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorPlusSizedDevices, allPlusSizedDevices)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorProDevices, allProDevices)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorMiniDevices, allMiniDevices)
DEVICECATALOG_SIMULATOR_GROUP(allSimulatorDevicesWithSensorHousing, allDevicesWithSensorHousing)

#undef DEVICECATALOG_GROUP
#undef DEVICECATALOG_SIMULATOR_GROUP

bool Device::isPod() const { return isListedOrSimulated(*this, isPodRow); }

bool Device::isPhone() const {
  if (!isListedOrSimulated(*this, isPhoneRow)) {
    // A model the table does not know yet counts when it is the device the program runs on.
    const bool phoneIdiom =
        platform::currentDevice().userInterfaceIdiom() == platform::InterfaceIdiom::phone;
    if (!phoneIdiom || !detail::isCurrentDevice(*this)) return false;
  }
  // An iPod touch reports the phone idiom but is not a phone.
  return !isPod();
}

bool Device::isPad() const {
  if (isListedOrSimulated(*this, isPadRow)) return true;
  return platform::currentDevice().userInterfaceIdiom() == platform::InterfaceIdiom::pad &&
         detail::isCurrentDevice(*this);
}

bool Device::isSimulator() const {
  const ModelRow* row = DeviceAccess::listedRow(*this, /*wrapped=*/true);
  return row != nullptr && isRealDeviceRow(*row);
}

bool Device::isTouchIDCapable() const {
  return isListedOrSimulated(*this, hasFeature<detail::kTouchID>);
}
bool Device::isFaceIDCapable() const {
  return isListedOrSimulated(*this, hasFeature<detail::kFaceID>);
}
bool Device::hasBiometricSensor() const { return isTouchIDCapable() || isFaceIDCapable(); }
bool Device::hasSensorHousing() const {
  return isListedOrSimulated(*this, hasFeature<detail::kSensorHousing>);
}
bool Device::hasRoundedDisplayCorners() const {
  return isListedOrSimulated(*this, hasFeature<detail::kRoundedCorners>);
}
bool Device::has3dTouchSupport() const {
  return isListedOrSimulated(*this, hasFeature<detail::k3dTouch>);
}
bool Device::supportsWirelessCharging() const {
  return isListedOrSimulated(*this, hasFeature<detail::kWirelessCharging>);
}
bool Device::hasLidarSensor() const {
  return isListedOrSimulated(*this, hasFeature<detail::kLidar>);
}

bool Device::hasCamera() const { return cameraBits(*this) != detail::kNoCamera; }
bool Device::hasNormalCamera() const { return (cameraBits(*this) & detail::kWide) != 0; }
bool Device::hasWideCamera() const { return (cameraBits(*this) & detail::kWide) != 0; }
bool Device::hasTelephotoCamera() const { return (cameraBits(*this) & detail::kTelephoto) != 0; }
bool Device::hasUltraWideCamera() const { return (cameraBits(*this) & detail::kUltraWide) != 0; }

CPU Device::cpu() const {
  const ModelRow* row = DeviceAccess::innermostRow(*this);
  return row != nullptr ? CPU(row->cpu) : CPU::unknown;
}

std::vector<Device::CameraType> Device::cameras() const {
  const detail::Cameras bits = cameraBits(*this);
  std::vector<CameraType> cameras;
  if ((bits & detail::kWide) != 0) cameras.push_back(CameraType::wide);
  if ((bits & detail::kTelephoto) != 0) cameras.push_back(CameraType::telephoto);
  if ((bits & detail::kUltraWide) != 0) cameras.push_back(CameraType::ultraWide);
  return cameras;
}

ApplePencilSupport Device::applePencilSupport() const {
  const ModelRow* row = DeviceAccess::innermostRow(*this);
  return ApplePencilSupport(row != nullptr ? row->applePencilSupport : detail::kNoPencil);
}

double Device::diagonal() const {
  const ModelRow* row = DeviceAccess::innermostRow(*this);
  return row != nullptr ? row->diagonal : -1;
}

Device::ScreenRatio Device::screenRatio() const {
  const ModelRow* row = DeviceAccess::innermostRow(*this);
  return row != nullptr ? row->screenRatio : ScreenRatio{-1, -1};
}

std::optional<int> Device::ppi() const {
  const ModelRow* row = DeviceAccess::innermostRow(*this);
  if (row == nullptr) return std::nullopt;
  return row->ppi;
}

}  // namespace DeviceCatalog
