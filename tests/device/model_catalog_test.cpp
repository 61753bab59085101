// The model table read through the public Device interface: every row reachable and described as
// its columns say, simulators wrapping their model, groups agreeing with their predicates, a few
// hand-picked rows, the small value types and the host tool's `device` JSON.
#include <sstream>

#include <gtest/gtest.h>

#include "../../DeviceCatalog/src/ModelTable.h"
#include "DeviceCatalog/Device.h"
#include "platform/Json.h"
// The helper belongs to the host tool's library; compiled in so it can be checked without it.
#include "../../tools/host/DeviceJson.cpp"

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
    EXPECT_EQ(device.hasCamera(), row.cameras != 0);
    EXPECT_EQ(device.hasWideCamera() + 2 * device.hasTelephotoCamera() +
                  4 * device.hasUltraWideCamera() + 8 * device.hasNormalCamera(),
              row.cameras + 8 * (row.cameras & detail::kWide));
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
  EXPECT_EQ(Device::mapToDevice("iPhone3,3"), Device::iPhone4);
  EXPECT_EQ(Device::mapToDevice("iPad7,12"), Device::iPad7);
  EXPECT_EQ(Device::mapToDevice("iPhone8,4"), Device::iPhoneSE);
  EXPECT_EQ(Device::iPhoneXR.description(), "iPhone X\xCA\x80");
  std::vector<std::string> differing;
  for (const detail::ModelRow& row : detail::kModelTable) {
    if (row.description != row.safeDescription) differing.emplace_back(row.safeDescription);
  }
  EXPECT_EQ(differing, (std::vector<std::string>{"iPhone XS", "iPhone XS Max", "iPhone XR"}));
}

TEST(CapabilityGroups, AgreeWithTheirPredicatesAndSimulatorGroupsWrapThem) {
  using Group = const std::vector<Device>& (*)();
  struct Case {
    Group group;
    bool (Device::*predicate)() const;
    std::size_t size;
  };
  // clang-format off
  const Case cases[] = {
      {&Device::allPods, &Device::isPod, 3}, {&Device::allPhones, nullptr, 39},
      {&Device::allPads, nullptr, 32}, {&Device::allXSeriesDevices, nullptr, 23},
      {&Device::allPlusSizedDevices, nullptr, 12}, {&Device::allProDevices, nullptr, 22},
      {&Device::allMiniDevices, nullptr, 6},
      {&Device::allDevicesWithSensorHousing, &Device::hasSensorHousing, 23},
      {&Device::allTouchIDCapableDevices, &Device::isTouchIDCapable, 30},
      {&Device::allFaceIDCapableDevices, &Device::isFaceIDCapable, 31},
      {&Device::allBiometricAuthenticationCapableDevices, &Device::hasBiometricSensor, 61},
      {&Device::allDevicesWithRoundedDisplayCorners, &Device::hasRoundedDisplayCorners, 35},
      {&Device::allDevicesWith3dTouchSupport, &Device::has3dTouchSupport, 9},
      {&Device::allDevicesWithWirelessChargingSupport, &Device::supportsWirelessCharging, 27},
      {&Device::allDevicesWithALidarSensor, &Device::hasLidarSensor, 14},
      {&Device::allApplePencilCapableDevices, nullptr, 22},
      {&Device::allDevicesWithCamera, &Device::hasCamera, 74},
      {&Device::allDevicesWithNormalCamera, &Device::hasNormalCamera, 74},
      {&Device::allDevicesWithWideCamera, &Device::hasWideCamera, 74},
      {&Device::allDevicesWithTelephotoCamera, &Device::hasTelephotoCamera, 15},
      {&Device::allDevicesWithUltraWideCamera, &Device::hasUltraWideCamera, 25},
      {&Device::allRealDevices, nullptr, 74}};
  // clang-format on
  for (const Case& c : cases) {
    const std::vector<Device>& group = c.group();
    EXPECT_EQ(group.size(), c.size) << group.front();
    for (std::size_t i = 1; i < group.size(); ++i) {
      EXPECT_LT(group[i - 1].modelCase(), group[i].modelCase()) << "in model order, each once";
    }
    for (const detail::ModelRow& row : detail::kModelTable) {
      const Device device(row.model);
      const bool member = device.isOneOf(group);
      if (c.predicate == nullptr) continue;
      EXPECT_EQ((device.*c.predicate)(), member) << device;
      if (c.size == 74 || c.group == &Device::allDevicesWithTelephotoCamera ||
          c.group == &Device::allDevicesWithUltraWideCamera) {
        continue;  // no simulator has a camera
      }
      EXPECT_EQ((Device::simulator(device).*c.predicate)(), member) << device;
      EXPECT_FALSE((Device::simulator(Device::simulator(device)).*c.predicate)()) << device;
      EXPECT_FALSE((Device::unknown("iPhone99,1").*c.predicate)());
    }
  }
  std::vector<Device> real = Device::allPods();
  real.insert(real.end(), Device::allPhones().begin(), Device::allPhones().end());
  real.insert(real.end(), Device::allPads().begin(), Device::allPads().end());
  EXPECT_EQ(Device::allRealDevices(), real);
  for (const auto& [simulators, models] : std::vector<std::pair<Group, Group>>{
           {&Device::allSimulators, &Device::allRealDevices},
           {&Device::allSimulatorPods, &Device::allPods},
           {&Device::allSimulatorPhones, &Device::allPhones},
           {&Device::allSimulatorPads, &Device::allPads},
           {&Device::allSimulatorXSeriesDevices, &Device::allXSeriesDevices},
           {&Device::allSimulatorPlusSizedDevices, &Device::allPlusSizedDevices},
           {&Device::allSimulatorProDevices, &Device::allProDevices},
           {&Device::allSimulatorMiniDevices, &Device::allMiniDevices},
           {&Device::allSimulatorDevicesWithSensorHousing, &Device::allDevicesWithSensorHousing}}) {
    std::vector<Device> wrapped;
    for (const Device& model : models()) wrapped.push_back(Device::simulator(model));
    EXPECT_EQ(simulators(), wrapped);
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
  const char* names[] = {"A4",          "A5",          "A5X",        "A6",         "A6X",
                         "A7",          "A8",          "A8X",        "A9",         "A9X",
                         "A10 Fusion",  "A10X Fusion", "A11 Bionic", "A12 Bionic", "A12X Bionic",
                         "A12Z Bionic", "A13 Bionic",  "A14 Bionic", "A15 Bionic", "A16 Bionic",
                         "A17 Pro",     "M1",          "M2",         "unknown"};
  for (int i = 0; i < 24; ++i) {
    const CPU cpu(static_cast<CPU::Value>(i));
    EXPECT_EQ(cpu.description(), names[i]);
    if (i > 0) {
      EXPECT_LT(CPU(static_cast<CPU::Value>(i - 1)), cpu);
    }
    EXPECT_NE(std::hash<CPU>{}(cpu), std::hash<CPU>{}(CPU(static_cast<CPU::Value>((i + 1) % 24))));
  }
  EXPECT_EQ(CPU(CPU::unknown).description(), "unknown");

  const auto first = ApplePencilSupport::firstGeneration,
             second = ApplePencilSupport::secondGeneration;
  const ApplePencilSupport both{first, second}, none;
  EXPECT_EQ(both.rawValue(), 3u);
  EXPECT_EQ((first | second) & second, second);
  EXPECT_EQ(both ^ first, second);
  EXPECT_EQ(both.subtracting(second), first);
  EXPECT_TRUE(none.isSubset(first) && first.isDisjoint(second) && both.contains(first));
  ApplePencilSupport set;
  EXPECT_TRUE(set.insert(first).first);
  EXPECT_FALSE(set.insert(first).first);
  EXPECT_EQ(set.update(second), std::nullopt);
  EXPECT_EQ(set.remove(first), first);
  EXPECT_EQ(set.remove(first), std::nullopt);
  EXPECT_EQ(set, second);

  EXPECT_EQ(BatteryState::unplugged(-100).description(),
            "Battery level: -100%, device is unplugged.");
  // clang-format off
  for (const auto& [lhs, rhs, less] : std::vector<std::tuple<BatteryState, BatteryState, bool>>{
      {BatteryState::unplugged(99), BatteryState::full(), true},
      {BatteryState::full(), BatteryState::charging(100), false},
      {BatteryState::charging(20), BatteryState::unplugged(30), true},
      {BatteryState::unplugged(30), BatteryState::unplugged(20), false},
      {BatteryState::charging(40), BatteryState::unplugged(40), false}}) {
    // clang-format on
    EXPECT_EQ(lhs < rhs, less) << lhs.description() << " < " << rhs.description();
    EXPECT_EQ(rhs > lhs, less);
    EXPECT_EQ(lhs >= rhs, !less);
  }
  EXPECT_NE(BatteryState::charging(40), BatteryState::unplugged(40));
  EXPECT_TRUE(BatteryState::charging(40) <= BatteryState::unplugged(40));
}

TEST(DeviceJson, ExactBytesForEachKindOfValue) {
  EXPECT_EQ(zelnora_host::deviceJson(Device::iPhone15Pro),
            R"({"description":"iPhone 15 Pro","safeDescription":"iPhone 15 Pro","cpu":"A17 Pro",)"
            R"("diagonal":6.1,"ppi":460,"screenRatio":[9,19.5],)"
            R"("cameras":["wide","telephoto","ultraWide"],"applePencilSupport":0,)"
            R"("isPod":false,"isPhone":true,"isPad":false,"isSimulator":false,)"
            R"("isTouchIDCapable":false,"isFaceIDCapable":true,"hasBiometricSensor":true,)"
            R"("hasSensorHousing":true,"hasRoundedDisplayCorners":true,"has3dTouchSupport":false,)"
            R"("supportsWirelessCharging":true,"hasLidarSensor":true,"hasCamera":true,)"
            R"("hasNormalCamera":true,"hasWideCamera":true,"hasTelephotoCamera":true,)"
            R"("hasUltraWideCamera":true})");
  // clang-format off
  for (const auto& [device, part] : std::vector<std::pair<Device, std::string>>{
      {Device::simulator(Device::iPhone15Pro), R"("ppi":460,"screenRatio":[9,19.5],"cameras":[],)"},
      {Device::iPadMini6, R"("diagonal":8.3,"ppi":326,"screenRatio":[744,1133],"cameras":["wide"],"applePencilSupport":2,)"},
      {Device::homePod, R"("diagonal":-1,"ppi":-1,"screenRatio":[4,5],"cameras":[],"applePencilSupport":0,)"},
      {Device::unknown("a\"/b"), R"({"description":"a\"\/b","safeDescription":"a\"\/b","cpu":"unknown","diagonal":-1,"ppi":null,"screenRatio":[-1,-1],)"},
      {Device::iPhoneXR, "\"description\":\"iPhone X\xCA\x80\",\"safeDescription\":\"iPhone XR\""}}) {
    // clang-format on
    const std::string json = zelnora_host::deviceJson(device);
    EXPECT_NE(json.find(part), std::string::npos) << json;
    EXPECT_EQ(platform::parseJson(json).value_or(nlohmann::json()).size(), 25u) << json;
  }
}

}  // namespace
}  // namespace DeviceCatalog
