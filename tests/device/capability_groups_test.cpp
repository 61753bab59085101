// The capability groups and the predicates that read them, for models, simulators and unknown
// values, including the phone and pad rules that fall back on the interface idiom.
#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/FakeDevicePlatform.h"
#include "device/ModelExpectations.h"

namespace device_test {
namespace {

using platform::InterfaceIdiom;

std::vector<Device> wrapAll(const std::vector<Device>& devices) {
  std::vector<Device> wrapped;
  for (const Device& device : devices) wrapped.push_back(Device::simulator(device));
  return wrapped;
}

std::vector<Device> allModelsExceptHomePod() {
  std::vector<Device> devices;
  for (const ExpectedModel& model : expectedModels()) {
    if (model.caseName != "homePod") devices.push_back(model.device);
  }
  return devices;
}

std::vector<Device> joined(std::initializer_list<std::vector<Device>> parts) {
  std::vector<Device> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const ExpectedGroup& listedGroup(const std::string& name) {
  for (const ExpectedGroup& group : expectedListedGroups()) {
    if (group.name == name) return group;
  }
  ADD_FAILURE() << "no expectation for " << name;
  static const ExpectedGroup none{};
  return none;
}

TEST(CapabilityGroups, ListedGroupsHoldExactlyTheirMembersInModelOrder) {
  ASSERT_EQ(expectedListedGroups().size(), 18u);
  for (const ExpectedGroup& expected : expectedListedGroups()) {
    SCOPED_TRACE(expected.name);
    ASSERT_EQ(expected.members.size(), expected.size);
    EXPECT_EQ(expected.group(), expected.members);
  }
}

TEST(CapabilityGroups, CameraGroupsHoldEveryModelButHomePod) {
  const auto expected = allModelsExceptHomePod();
  ASSERT_EQ(expected.size(), 74u);
  EXPECT_EQ(Device::allDevicesWithCamera(), expected);
  EXPECT_EQ(Device::allDevicesWithNormalCamera(), expected);
  EXPECT_EQ(Device::allDevicesWithWideCamera(), expected);
}

TEST(CapabilityGroups, RealDevicesArePodsPhonesAndPads) {
  EXPECT_EQ(Device::allRealDevices(),
            joined({listedGroup("allPods").members, listedGroup("allPhones").members,
                    listedGroup("allPads").members}));
  EXPECT_EQ(Device::allRealDevices().size(), 74u);
  EXPECT_FALSE(Device::homePod.isOneOf(Device::allRealDevices()));
  EXPECT_FALSE(Device::simulator(Device::homePod).isOneOf(Device::allSimulators()));
}

TEST(CapabilityGroups, SimulatorGroupsWrapTheirModelGroupInOrder) {
  struct Pair {
    const std::vector<Device>& (*simulators)();
    std::string modelGroup;
  };
  EXPECT_EQ(Device::allSimulators(), wrapAll(Device::allRealDevices()));
  EXPECT_EQ(Device::allSimulators().size(), 74u);
  for (const Pair& pair : std::vector<Pair>{
           {&Device::allSimulatorPods, "allPods"},
           {&Device::allSimulatorPhones, "allPhones"},
           {&Device::allSimulatorPads, "allPads"},
           {&Device::allSimulatorXSeriesDevices, "allXSeriesDevices"},
           {&Device::allSimulatorPlusSizedDevices, "allPlusSizedDevices"},
           {&Device::allSimulatorProDevices, "allProDevices"},
           {&Device::allSimulatorMiniDevices, "allMiniDevices"},
           {&Device::allSimulatorDevicesWithSensorHousing, "allDevicesWithSensorHousing"},
       }) {
    SCOPED_TRACE(pair.modelGroup);
    EXPECT_EQ(pair.simulators(), wrapAll(listedGroup(pair.modelGroup).members));
    for (const Device& simulator : pair.simulators()) {
      EXPECT_EQ(simulator.kind(), Device::Kind::simulator);
    }
  }
}

// Each feature predicate against the group it reads.
struct PredicateCase {
  std::string group;
  bool (Device::*predicate)() const;
};

const std::vector<PredicateCase>& groupPredicates() {
  static const std::vector<PredicateCase> cases = {
      {"allPods", &Device::isPod},
      {"allTouchIDCapableDevices", &Device::isTouchIDCapable},
      {"allFaceIDCapableDevices", &Device::isFaceIDCapable},
      {"allBiometricAuthenticationCapableDevices", &Device::hasBiometricSensor},
      {"allDevicesWithSensorHousing", &Device::hasSensorHousing},
      {"allDevicesWithRoundedDisplayCorners", &Device::hasRoundedDisplayCorners},
      {"allDevicesWith3dTouchSupport", &Device::has3dTouchSupport},
      {"allDevicesWithWirelessChargingSupport", &Device::supportsWirelessCharging},
      {"allDevicesWithALidarSensor", &Device::hasLidarSensor},
  };
  return cases;
}

TEST(DevicePredicates, FeaturePredicatesHoldForMembersAndTheirSimulatorsOnly) {
  for (const PredicateCase& predicate : groupPredicates()) {
    const auto& members = listedGroup(predicate.group).members;
    for (const ExpectedModel& model : expectedModels()) {
      SCOPED_TRACE(predicate.group + " / " + model.caseName);
      const bool member = model.device.isOneOf(members);
      const Device simulated = Device::simulator(model.device);
      EXPECT_EQ((model.device.*predicate.predicate)(), member);
      EXPECT_EQ((simulated.*predicate.predicate)(), member);
      EXPECT_FALSE((Device::simulator(simulated).*predicate.predicate)());
    }
  }
}

TEST(DevicePredicates, FeaturePredicatesAreFalseForUnknownModels) {
  const Device unknown = Device::unknown("iPhone99,1");
  for (const PredicateCase& predicate : groupPredicates()) {
    EXPECT_FALSE((unknown.*predicate.predicate)()) << predicate.group;
    EXPECT_FALSE((Device::simulator(unknown).*predicate.predicate)()) << predicate.group;
  }
  EXPECT_FALSE(unknown.isSimulator());
}

TEST(DevicePredicates, MembershipIsByDescriptionSoSpelledNamesCount) {
  EXPECT_TRUE(Device::unknown("iPhone X").hasSensorHousing());
  EXPECT_TRUE(Device::simulator(Device::unknown("iPhone X")).hasSensorHousing());
  EXPECT_TRUE(Device::unknown("Simulator (iPhone X)").hasSensorHousing());
  EXPECT_TRUE(Device::unknown("Simulator (iPhone X)").isSimulator());
  EXPECT_FALSE(Device::unknown("Simulator (Simulator (iPhone X))").hasSensorHousing());
  // "iPhone XS" is the safe name; the description is "iPhone Xs".
  EXPECT_FALSE(Device::unknown("iPhone XS").isFaceIDCapable());
}

TEST(DevicePredicates, SimulatorTestAcceptsOneLevelAroundARealDevice) {
  for (const Device& device : Device::allRealDevices()) {
    EXPECT_TRUE(Device::simulator(device).isSimulator()) << device;
    EXPECT_FALSE(device.isSimulator()) << device;
    EXPECT_FALSE(Device::simulator(Device::simulator(device)).isSimulator()) << device;
  }
  EXPECT_TRUE(Device::simulator(Device::iPadAir4).isSimulator());
  EXPECT_FALSE(Device::simulator(Device::homePod).isSimulator());
  EXPECT_FALSE(Device::simulator(Device::unknown("iOS")).isSimulator());
}

TEST(DevicePredicates, BiometricSensorIsTouchIdOrFaceId) {
  for (const ExpectedModel& model : expectedModels()) {
    EXPECT_EQ(model.device.hasBiometricSensor(),
              model.device.isTouchIDCapable() || model.device.isFaceIDCapable())
        << model.caseName;
  }
}

class PhoneAndPadRuleTest : public ::testing::Test {
 protected:
  FakeDevicePlatform fakes{"iPhone15,2"};
};

TEST_F(PhoneAndPadRuleTest, ListedModelsDoNotDependOnTheIdiom) {
  for (InterfaceIdiom idiom :
       {InterfaceIdiom::phone, InterfaceIdiom::pad, InterfaceIdiom::unspecified}) {
    fakes.device.idiom = idiom;
    for (const ExpectedModel& model : expectedModels()) {
      SCOPED_TRACE(model.caseName);
      const bool phone = model.device.isOneOf(listedGroup("allPhones").members);
      const bool pad = model.device.isOneOf(listedGroup("allPads").members);
      if (model.device == Device::current()) continue;  // the idiom may count for it
      EXPECT_EQ(model.device.isPhone(), phone);
      EXPECT_EQ(Device::simulator(model.device).isPhone(), phone);
      EXPECT_EQ(model.device.isPad(), pad);
      EXPECT_EQ(Device::simulator(model.device).isPad(), pad);
    }
  }
}

TEST_F(PhoneAndPadRuleTest, PodIsNeverAPhoneEvenAsTheCurrentPhoneIdiomDevice) {
  Device::setIdentifier("iPod9,1");
  fakes.device.idiom = InterfaceIdiom::phone;
  EXPECT_FALSE(Device::iPodTouch7.isPhone());
  EXPECT_FALSE(Device::unknown("iPod touch (7th generation)").isPhone());
  EXPECT_TRUE(Device::iPodTouch7.isPod());
}

TEST_F(PhoneAndPadRuleTest, ListedPhoneIsAPhoneUnderAnyIdiom) {
  fakes.device.idiom = InterfaceIdiom::pad;
  EXPECT_TRUE(Device::iPhoneSE3.isPhone());
  EXPECT_FALSE(Device::iPhoneSE3.isPad());
}

TEST_F(PhoneAndPadRuleTest, UnknownCurrentDeviceFollowsTheIdiom) {
  Device::setIdentifier("iPhone99,1");
  const Device unknown = Device::unknown("iPhone99,1");
  fakes.device.idiom = InterfaceIdiom::phone;
  EXPECT_TRUE(unknown.isPhone());
  EXPECT_FALSE(unknown.isPad());
  fakes.device.idiom = InterfaceIdiom::pad;
  EXPECT_FALSE(unknown.isPhone());
  EXPECT_TRUE(unknown.isPad());
  fakes.device.idiom = InterfaceIdiom::unspecified;
  EXPECT_FALSE(unknown.isPhone());
  EXPECT_FALSE(unknown.isPad());
}

TEST_F(PhoneAndPadRuleTest, UnknownDeviceThatIsNotCurrentIsNeither) {
  Device::setIdentifier("iPhone15,2");
  const Device unknown = Device::unknown("iPhone99,1");
  fakes.device.idiom = InterfaceIdiom::phone;
  EXPECT_FALSE(unknown.isPhone());
  fakes.device.idiom = InterfaceIdiom::pad;
  EXPECT_FALSE(unknown.isPad());
}

TEST_F(PhoneAndPadRuleTest, SimulatedUnknownCurrentDeviceFollowsTheIdiom) {
  Device::setIdentifier("x86_64");
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad99,9";
  fakes.device.idiom = InterfaceIdiom::pad;
  const Device current = Device::simulator(Device::unknown("iPad99,9"));
  EXPECT_TRUE(current.isPad());
  EXPECT_FALSE(current.isSimulator());
  EXPECT_FALSE(Device::simulator(Device::unknown("iPad98,9")).isPad());
}

TEST_F(PhoneAndPadRuleTest, SimulatedPadIsAPad) {
  fakes.device.idiom = InterfaceIdiom::phone;
  EXPECT_TRUE(Device::simulator(Device::iPadAir4).isPad());
  EXPECT_FALSE(Device::simulator(Device::iPadAir4).isPhone());
}

}  // namespace
}  // namespace device_test
