// The model table read through the public Device interface: every row reachable and described as
// its columns say, simulators wrapping their model, groups agreeing with their predicates, a few
// hand-picked rows and the small value types.
#include <sstream>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "DeviceCatalog/src/ModelTable.h"

namespace DeviceCatalog {
namespace {

using Camera = Device::CameraType;

std::vector<Camera> camerasOf(detail::Cameras bits) {
  std::vector<Camera> cameras;
  for (const auto& [bit, type] : {std::pair{detail::kWide, Camera::wide},
                                  {detail::kTelephoto, Camera::telephoto},
                                  {detail::kUltraWide, Camera::ultraWide}}) {
    if (bits & bit) cameras.push_back(type);
  }
  return cameras;
}

TEST(ModelTable, EveryRowIsReachableDescribedAndWrappedAsItsColumnsSay) {
  for (const detail::ModelRow& row : detail::kModelTable) {
    const Device device(row.model);
    SCOPED_TRACE(row.description);
    for (const std::string_view identifier : row.identifiers.places) {
      if (identifier.empty()) continue;
      EXPECT_EQ(Device::mapToDevice(identifier).modelCase(), row.model) << identifier;
    }
    EXPECT_EQ(device.description(), row.description);
    EXPECT_EQ(device.safeDescription(), row.safeDescription);
    EXPECT_EQ(Device::unknown(row.description), device) << "equal by description";
    const Device simulated = Device::simulator(device);
    EXPECT_EQ(simulated.description(), "Simulator (" + std::string(row.description) + ")");
    EXPECT_EQ(simulated.safeDescription(), "Simulator (" + std::string(row.safeDescription) + ")");
    EXPECT_EQ(simulated.kind(), Device::Kind::simulator);
    EXPECT_EQ(simulated.real().modelCase(), row.model);
    EXPECT_EQ(device.cameras(), camerasOf(row.cameras));
    for (const Device& value : {device, simulated, Device::simulator(simulated)}) {
      EXPECT_EQ(value.cpu(), row.cpu);
      EXPECT_EQ(value.diagonal(), row.diagonal);
      EXPECT_EQ(value.screenRatio(), row.screenRatio);
      EXPECT_EQ(value.ppi(), row.ppi);
      EXPECT_EQ(value.applePencilSupport().rawValue(), row.applePencilSupport);
      EXPECT_EQ(value.cameras().empty() && !value.hasCamera(), value != device || !row.cameras);
    }
  }
}

TEST(ModelTable, HandPickedRows) {
  using C = Camera;
  EXPECT_EQ(Device::kModelCount, 75u);
  // clang-format off
  for (const auto& [device, text] : std::vector<std::pair<Device, std::string>>{
      {Device::iPhone14ProMax, "iPhone 14 Pro Max|A16 Bionic|6.7|9:19.5|458|3|0"},
      {Device::iPadMini6, "iPad Mini (6th generation)|A15 Bionic|8.3|744:1133|326|1|2"},
      {Device::homePod, "HomePod|A8|-1|4:5|-1|0|0"},
      {Device::iPhone4, "iPhone 4|A4|3.5|2:3|326|1|0"},
      {Device::unknown("iPhone99,1"), "iPhone99,1|unknown|-1|-1:-1|none|0|0"}}) {
    // clang-format on
    std::ostringstream facts;
    facts << device.description() << "|" << device.cpu().description() << "|" << device.diagonal()
          << "|" << device.screenRatio().width << ":" << device.screenRatio().height << "|"
          << (device.ppi() ? std::to_string(*device.ppi()) : "none") << "|"
          << device.cameras().size() << "|" << device.applePencilSupport().rawValue();
    EXPECT_EQ(facts.str(), text);
  }
  EXPECT_EQ(Device::iPhone14ProMax.cameras(), (std::vector{C::wide, C::telephoto, C::ultraWide}));
  EXPECT_EQ(Device::iPhoneXR.description(), "iPhone X\xCA\x80");
  std::vector<std::string> differing;
  for (const detail::ModelRow& row : detail::kModelTable) {
    if (row.description != row.safeDescription) differing.emplace_back(row.safeDescription);
  }
  EXPECT_EQ(differing, (std::vector<std::string>{"iPhone XS", "iPhone XS Max", "iPhone XR"}));
}

// Each group with the predicate that reads it, its size and the group of its simulators. (The
// idiom, which can make the current device a phone or a pad, is unspecified here.)
TEST(CapabilityGroups, AgreeWithTheirPredicatesAndSimulatorGroupsWrapThem) {
  using Group = const std::vector<Device>& (*)();
  struct Case {
    Group group;
    bool (Device::*predicate)() const;
    std::size_t size;
    Group simulators = nullptr;
    bool simulatorsToo = true;  // no simulator has a camera
  };
  using D = Device;
  // clang-format off
  const Case cases[] = {
      {&D::allPods, &D::isPod, 3, &D::allSimulatorPods}, {&D::allPhones, &D::isPhone, 39, &D::allSimulatorPhones},
      {&D::allPads, &D::isPad, 32, &D::allSimulatorPads}, {&D::allXSeriesDevices, nullptr, 23, &D::allSimulatorXSeriesDevices},
      {&D::allPlusSizedDevices, nullptr, 12, &D::allSimulatorPlusSizedDevices},
      {&D::allProDevices, nullptr, 22, &D::allSimulatorProDevices}, {&D::allMiniDevices, nullptr, 6, &D::allSimulatorMiniDevices},
      {&D::allDevicesWithSensorHousing, &D::hasSensorHousing, 23, &D::allSimulatorDevicesWithSensorHousing},
      {&D::allTouchIDCapableDevices, &D::isTouchIDCapable, 30}, {&D::allFaceIDCapableDevices, &D::isFaceIDCapable, 31},
      {&D::allBiometricAuthenticationCapableDevices, &D::hasBiometricSensor, 61},
      {&D::allDevicesWithRoundedDisplayCorners, &D::hasRoundedDisplayCorners, 35},
      {&D::allDevicesWith3dTouchSupport, &D::has3dTouchSupport, 9},
      {&D::allDevicesWithWirelessChargingSupport, &D::supportsWirelessCharging, 27},
      {&D::allDevicesWithALidarSensor, &D::hasLidarSensor, 14}, {&D::allApplePencilCapableDevices, nullptr, 22},
      {&D::allDevicesWithCamera, &D::hasCamera, 74, nullptr, false},
      {&D::allDevicesWithNormalCamera, &D::hasNormalCamera, 74, nullptr, false},
      {&D::allDevicesWithWideCamera, &D::hasWideCamera, 74, nullptr, false},
      {&D::allDevicesWithTelephotoCamera, &D::hasTelephotoCamera, 15, nullptr, false},
      {&D::allDevicesWithUltraWideCamera, &D::hasUltraWideCamera, 25, nullptr, false},
      {&D::allRealDevices, nullptr, 74, &D::allSimulators}};
  // clang-format on
  for (const Case& c : cases) {
    const std::vector<Device>& group = c.group();
    EXPECT_EQ(group.size(), c.size) << group.front();
    for (std::size_t i = 1; i < group.size(); ++i) {
      EXPECT_LT(group[i - 1].modelCase(), group[i].modelCase()) << "in model order, each once";
    }
    std::vector<Device> wrapped;
    for (const Device& member : group) wrapped.push_back(Device::simulator(member));
    EXPECT_TRUE(!c.simulators || c.simulators() == wrapped) << group.front();
    for (const detail::ModelRow& row : detail::kModelTable) {
      const Device device(row.model), simulated = Device::simulator(device);
      if (c.predicate == nullptr) continue;
      EXPECT_EQ((device.*c.predicate)(), device.isOneOf(group)) << device;
      EXPECT_EQ((simulated.*c.predicate)(), c.simulatorsToo && device.isOneOf(group)) << device;
      EXPECT_FALSE((Device::simulator(simulated).*c.predicate)()) << device;
      EXPECT_FALSE((Device::unknown("iPhone99,1").*c.predicate)());
    }
  }
  for (const Device& device : Device::allRealDevices()) {
    EXPECT_TRUE(!device.isSimulator() && Device::simulator(device).isSimulator()) << device;
    EXPECT_FALSE(Device::simulator(Device::simulator(device)).isSimulator()) << device;
  }
  EXPECT_FALSE(Device::simulator(Device::homePod).isSimulator());
  EXPECT_TRUE(Device::unknown("Simulator (iPhone X)").hasSensorHousing()) << "by description";
  EXPECT_FALSE(Device::unknown("iPhone XS").isFaceIDCapable()) << "the safe name is not the name";
}

TEST(ValueTypes, CpuNamesAndOrderPencilSetsAndBatteryStates) {
  std::istringstream names(
      "A4|A5|A5X|A6|A6X|A7|A8|A8X|A9|A9X|A10 Fusion|A10X Fusion|A11 Bionic|"
      "A12 Bionic|A12X Bionic|A12Z Bionic|A13 Bionic|A14 Bionic|A15 Bionic|"
      "A16 Bionic|A17 Pro|M1|M2|unknown");
  std::string name;
  for (int i = 0; std::getline(names, name, '|'); ++i) {
    const CPU cpu(static_cast<CPU::Value>(i)), previous(static_cast<CPU::Value>(i > 0 ? i - 1 : 0));
    EXPECT_EQ(cpu.description(), name);
    EXPECT_EQ(previous<cpu, i> 0) << name;
  }
  const ApplePencilSupport both{ApplePencilSupport::firstGeneration,
                                ApplePencilSupport::secondGeneration};
  EXPECT_EQ(both.rawValue(), 3u);
  EXPECT_EQ(both ^ ApplePencilSupport::firstGeneration, ApplePencilSupport::secondGeneration);
  // clang-format off
  for (const auto& [lhs, rhs, less] : std::vector<std::tuple<BatteryState, BatteryState, bool>>{
      {BatteryState::unplugged(99), BatteryState::full(), true}, {BatteryState::full(), BatteryState::charging(100), false},
      {BatteryState::charging(20), BatteryState::unplugged(30), true}, {BatteryState::unplugged(30), BatteryState::unplugged(20), false},
      {BatteryState::charging(40), BatteryState::unplugged(40), false}}) {
    // clang-format on
    EXPECT_EQ(lhs < rhs, less) << lhs.description() << " < " << rhs.description();
  }
  EXPECT_TRUE(BatteryState::charging(40) != BatteryState::unplugged(40) &&
              BatteryState::charging(40) <= BatteryState::unplugged(40));
}

}  // namespace
}  // namespace DeviceCatalog
