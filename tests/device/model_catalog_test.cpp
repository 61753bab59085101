// The model table read through the public Device interface: every row reachable and described as
// its columns say, simulators wrapping their model, groups agreeing with their predicates, a few
// hand-picked rows and the small value types.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "../../DeviceCatalog/src/ModelTable.h"
#include "DeviceCatalog/Device.h"

namespace DeviceCatalog {
namespace {

using Camera = Device::CameraType;

// One line of tests/device/models.tsv: the model table as the product documentation states it.
struct DocumentedModel {
  std::vector<std::string> identifiers;
  std::string description, safeDescription, facts;  // facts: cpu to pencil, tab-separated
  std::set<std::string> groups;
};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

std::vector<DocumentedModel> documentedModels() {
  std::vector<DocumentedModel> models;
  std::ifstream file(ZELNORA_SOURCE_DIR "/tests/device/models.tsv");
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line.starts_with("#")) continue;
    const std::vector<std::string> f = split(line, '\t');
    if (f.size() != 11) ADD_FAILURE() << "malformed line: " << line;
    if (f.size() != 11) continue;
    const auto groups = split(f[10], ',');
    models.push_back({split(f[1], ' '),
                      f[2],
                      f[3],
                      f[4] + "\t" + f[5] + "\t" + f[6] + "\t" + f[7] + "\t" + f[8] + "\t" + f[9],
                      {groups.begin(), groups.end()}});
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
  std::map<std::string, const DocumentedModel*> byDescription;
  for (const DocumentedModel& model : documented) {
    byDescription[model.description] = &model;
    for (const std::string& identifier : model.identifiers) {
      const Device device = Device::mapToDevice(identifier);
      const Device twiceSimulated = Device::simulator(Device::simulator(device));
      EXPECT_EQ(device.description(), model.description) << identifier;
      EXPECT_EQ(device.safeDescription(), model.safeDescription) << identifier;
      EXPECT_EQ(factsOf(device, device.cameras()), model.facts) << identifier;
      EXPECT_EQ(factsOf(twiceSimulated, device.cameras()), model.facts) << "unwrapped";
      EXPECT_EQ(twiceSimulated.real().real(), device);
      EXPECT_EQ(Device::simulator(device).safeDescription(),
                "Simulator (" + model.safeDescription + ")");
    }
  }
  for (const detail::ModelRow& row : detail::kModelTable) {
    const auto found = byDescription.find(std::string(row.description));
    ASSERT_NE(found, byDescription.end()) << row.description << " is not documented";
    std::set<std::string> identifiers;
    for (std::string_view identifier : row.identifiers.places)
      if (!identifier.empty()) identifiers.emplace(identifier);
    EXPECT_EQ(identifiers, std::set<std::string>(found->second->identifiers.begin(),
                                                 found->second->identifiers.end()));
  }
}

TEST(ModelTable, AnUnknownModelHasNoFacts) {
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
    for (const DocumentedModel& model : documented) {
      EXPECT_EQ(Device::unknown(model.description).isOneOf(group), model.groups.contains(c.name))
          << model.description << (model.groups.contains(c.name) ? " missing from " : " in ")
          << c.name;
    }
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
