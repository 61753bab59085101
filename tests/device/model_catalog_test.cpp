// The model table read through the public Device interface: every row reachable and described as
// its columns say, simulators wrapping their model, groups agreeing with their predicates, a few
// hand-picked rows and the small value types.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "DeviceCatalog/src/ModelTable.h"

namespace DeviceCatalog {
namespace {

using Camera = Device::CameraType;

// One line of tests/device/models.tsv: the model table as the product documentation states it.
struct DocumentedModel {
  std::set<std::string> identifiers, groups;
  std::string description, safeDescription, facts;  // facts: cpu to pencil, tab-separated
};

std::set<std::string> split(const std::string& text, char separator) {
  std::set<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.insert(part);
  return parts;
}

std::vector<DocumentedModel> documentedModels() {
  std::vector<DocumentedModel> models;
  std::ifstream file(ZELNORA_SOURCE_DIR "/tests/device/models.tsv");
  for (std::string line; std::getline(file, line);) {
    std::vector<std::string> f(1);
    for (char c : line) c == '\t' ? (void)f.emplace_back() : f.back().push_back(c);
    if (line.starts_with("#") || f.size() != 11) continue;  // the count is checked by the caller
    std::string facts = f[4];
    for (int i = 5; i < 10; ++i) facts += "\t" + f[i];
    models.push_back({split(f[1], ' '), split(f[10], ','), f[2], f[3], facts});
  }
  return models;
}

// The documented columns cpu, diagonal, screen ratio, ppi, cameras and pencil of a value.
std::string factsOf(const Device& device, const std::vector<Camera>& cameras) {
  static const char* const kCameraNames[] = {"normal", "wide", "telephoto", "ultraWide"};
  static const char* const kPencilNames[] = {"none", "firstGeneration", "secondGeneration"};
  std::ostringstream facts;
  facts << device.cpu().description() << "\t" << device.diagonal() << "\t"
        << device.screenRatio().width << ":" << device.screenRatio().height << "\t"
        << (device.ppi() ? std::to_string(*device.ppi()) : "absent") << "\t";
  for (std::size_t i = 0; i < cameras.size(); ++i)
    facts << (i > 0 ? "," : "") << kCameraNames[static_cast<int>(cameras[i])];
  facts << (cameras.empty() ? "none" : "") << "\t"
        << kPencilNames[std::min<unsigned>(device.applePencilSupport().rawValue(), 2)];
  return facts.str();
}

// Both ways: every documented identifier leads to its documented model and facts, and every row
// of the code's table is documented with the same identifiers.
TEST(ModelTable, AgreesWithTheDocumentedTableInBothDirections) {
  const std::vector<DocumentedModel> documented = documentedModels();
  ASSERT_EQ(documented.size(), Device::kModelCount);
  std::map<std::string, std::set<std::string>> identifiersByDescription;
  for (const DocumentedModel& model : documented) {
    identifiersByDescription[model.description] = model.identifiers;
    for (const std::string& identifier : model.identifiers) {
      const Device device = Device::mapToDevice(identifier), simulated = Device::simulator(device);
      EXPECT_EQ(device.description(), model.description) << identifier;
      EXPECT_EQ(device.safeDescription(), model.safeDescription) << identifier;
      EXPECT_EQ(factsOf(device, device.cameras()), model.facts) << identifier;
      EXPECT_EQ(factsOf(Device::simulator(simulated), device.cameras()), model.facts);
      EXPECT_EQ(simulated.safeDescription(), "Simulator (" + model.safeDescription + ")");
    }
  }
  for (const detail::ModelRow& row : detail::kModelTable) {
    std::set<std::string> identifiers(row.identifiers.places.begin(), row.identifiers.places.end());
    identifiers.erase("");
    EXPECT_EQ(identifiersByDescription[std::string(row.description)], identifiers)
        << row.description;
  }
  EXPECT_EQ(factsOf(Device::unknown("iPhone99,1"), {}), "unknown\t-1\t-1:-1\tabsent\tnone\tnone");
}

// Each group with the predicate that reads it, its documented members and the group of its
// simulators. (The idiom, which can make the current device a phone or a pad, is unspecified here.)
TEST(CapabilityGroups, AgreeWithTheirPredicatesAndSimulatorGroupsWrapThem) {
  using Group = const std::vector<Device>& (*)();
  struct Case {
    Group group;
    bool (Device::*predicate)() const;
    const char* name;
    Group simulators = nullptr;
    bool simulatorsToo = true;  // no simulator has a camera
  };
  using D = Device;
  // clang-format off
  const Case cases[] = {
      {&D::allPods, &D::isPod, "allPods", &D::allSimulatorPods}, {&D::allPhones, &D::isPhone, "allPhones", &D::allSimulatorPhones},
      {&D::allPads, &D::isPad, "allPads", &D::allSimulatorPads}, {&D::allXSeriesDevices, nullptr, "allXSeriesDevices", &D::allSimulatorXSeriesDevices},
      {&D::allPlusSizedDevices, nullptr, "allPlusSizedDevices", &D::allSimulatorPlusSizedDevices},
      {&D::allProDevices, nullptr, "allProDevices", &D::allSimulatorProDevices}, {&D::allMiniDevices, nullptr, "allMiniDevices", &D::allSimulatorMiniDevices},
      {&D::allDevicesWithSensorHousing, &D::hasSensorHousing, "allDevicesWithSensorHousing", &D::allSimulatorDevicesWithSensorHousing},
      {&D::allTouchIDCapableDevices, &D::isTouchIDCapable, "allTouchIDCapableDevices"}, {&D::allFaceIDCapableDevices, &D::isFaceIDCapable, "allFaceIDCapableDevices"},
      {&D::allBiometricAuthenticationCapableDevices, &D::hasBiometricSensor, "allBiometricAuthenticationCapableDevices"},
      {&D::allDevicesWithRoundedDisplayCorners, &D::hasRoundedDisplayCorners, "allDevicesWithRoundedDisplayCorners"},
      {&D::allDevicesWith3dTouchSupport, &D::has3dTouchSupport, "allDevicesWith3dTouchSupport"},
      {&D::allDevicesWithWirelessChargingSupport, &D::supportsWirelessCharging, "allDevicesWithWirelessChargingSupport"},
      {&D::allDevicesWithALidarSensor, &D::hasLidarSensor, "allDevicesWithALidarSensor"}, {&D::allApplePencilCapableDevices, nullptr, "allApplePencilCapableDevices"},
      {&D::allDevicesWithCamera, &D::hasCamera, "allDevicesWithCamera", nullptr, false},
      {&D::allDevicesWithNormalCamera, &D::hasNormalCamera, "allDevicesWithNormalCamera", nullptr, false},
      {&D::allDevicesWithWideCamera, &D::hasWideCamera, "allDevicesWithWideCamera", nullptr, false},
      {&D::allDevicesWithTelephotoCamera, &D::hasTelephotoCamera, "allDevicesWithTelephotoCamera", nullptr, false},
      {&D::allDevicesWithUltraWideCamera, &D::hasUltraWideCamera, "allDevicesWithUltraWideCamera", nullptr, false},
      {&D::allRealDevices, nullptr, "allRealDevices", &D::allSimulators}};
  // clang-format on
  const std::vector<DocumentedModel> documented = documentedModels();
  for (const Case& c : cases) {
    const std::vector<Device>& group = c.group();
    for (const DocumentedModel& model : documented)
      EXPECT_EQ(Device::unknown(model.description).isOneOf(group), model.groups.contains(c.name))
          << model.description << " in " << c.name;
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

TEST(ValueTypes, CpuOrderPencilSetsAndBatteryStates) {  // CPU names: in models.tsv
  for (int i = 1; i <= static_cast<int>(CPU::unknown); ++i) {
    EXPECT_LT(CPU(static_cast<CPU::Value>(i - 1)), CPU(static_cast<CPU::Value>(i))) << i;
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
