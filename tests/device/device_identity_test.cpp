// Machine identifier to Device: table lookups, unknown identifiers, the simulator rule, equality by
// description, isOneOf, realDevice and the assignable current identifier.
#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/FakeDevicePlatform.h"

namespace device_test {
namespace {

TEST(MapToDevice, IdentifiersThatAreEasilyConfused) {
  struct Case {
    std::string identifier;
    Device expected;
  };
  for (const Case& c : std::vector<Case>{
           {"iPhone15,2", Device::iPhone14Pro},
           {"iPhone16,1", Device::iPhone15Pro},
           {"iPad13,18", Device::iPad10},
           {"iPad7,1", Device::iPadPro12Inch2},
           {"iPad7,11", Device::iPad7},
           {"iPad7,12", Device::iPad7},
           {"iPhone8,4", Device::iPhoneSE},
           {"AudioAccessory1,1", Device::homePod},
       }) {
    const Device mapped = Device::mapToDevice(c.identifier);
    EXPECT_EQ(mapped.modelCase(), c.expected.modelCase()) << c.identifier;
  }
}

TEST(MapToDevice, AnythingNotInTheTableIsUnknownCarryingTheExactText) {
  for (const std::string& identifier : std::vector<std::string>{
           "iphone15,2", " iPhone15,2", "iPhone15,2 ", "iPhone99,1", "", "iPhone15", "iPhone15,2\n",
           std::string("iPhone15,2\0", 11), "iOS", "I386", "x86-64",
           // Either side of the length kept inside the value itself.
           std::string(31, 'a'), std::string(32, 'a'), std::string(300, 'z')}) {
    const Device mapped = Device::mapToDevice(identifier);
    EXPECT_EQ(mapped.kind(), Device::Kind::unknown) << identifier;
    EXPECT_EQ(mapped.unknownIdentifier(), identifier);
    EXPECT_EQ(mapped.description(), identifier);
  }
}

class SimulatorRuleTest : public ::testing::Test {
 protected:
  FakeDevicePlatform fakes;
};

TEST_F(SimulatorRuleTest, VariableNamesTheSimulatedModel) {
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone14,7";
  for (const std::string identifier : {"x86_64", "arm64", "i386"}) {
    const Device mapped = Device::mapToDevice(identifier);
    EXPECT_EQ(mapped.kind(), Device::Kind::simulator);
    EXPECT_EQ(mapped, Device::simulator(Device::iPhone14));
    EXPECT_EQ(mapped.real().modelCase(), Device::Model::iPhone14);
    EXPECT_EQ(mapped.description(), "Simulator (iPhone 14)");
  }
}

TEST_F(SimulatorRuleTest, MissingVariableReadsAsIos) {
  const Device mapped = Device::mapToDevice("arm64");
  EXPECT_EQ(mapped, Device::simulator(Device::unknown("iOS")));
  EXPECT_EQ(mapped.real().unknownIdentifier(), "iOS");
}

TEST_F(SimulatorRuleTest, VariableNamingAnUnknownModel) {
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad99,9";
  const Device mapped = Device::mapToDevice("i386");
  EXPECT_EQ(mapped.description(), "Simulator (iPad99,9)");
  EXPECT_EQ(mapped.real().unknownIdentifier(), "iPad99,9");
}

TEST_F(SimulatorRuleTest, VariableNamingASimulatorStopsAfterOneLevel) {
  for (const std::string variable : {"x86_64", "arm64", "i386"}) {
    fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = variable;
    const Device mapped = Device::mapToDevice("x86_64");
    EXPECT_EQ(mapped.kind(), Device::Kind::simulator) << variable;
    EXPECT_EQ(mapped.real().kind(), Device::Kind::unknown) << variable;
    EXPECT_EQ(mapped.real().unknownIdentifier(), variable);
  }
}

TEST_F(SimulatorRuleTest, VariableIsReadOnEveryMapping) {
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone15,2";
  Device::setIdentifier("x86_64");
  EXPECT_EQ(Device::current(), Device::simulator(Device::iPhone14Pro));
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad14,5";
  EXPECT_EQ(Device::current(), Device::simulator(Device::iPadPro12Inch6));
}

TEST_F(SimulatorRuleTest, TableIdentifiersNeverReadTheVariable) {
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad14,5";
  EXPECT_EQ(Device::mapToDevice("iPhone15,2"), Device::iPhone14Pro);
}

TEST(RealDevice, RemovesExactlyOneSimulatorLevel) {
  EXPECT_EQ(Device::realDevice(Device::simulator(Device::iPadAir4)), Device::iPadAir4);
  EXPECT_EQ(Device::realDevice(Device::iPhoneX), Device::iPhoneX);
  EXPECT_EQ(Device::realDevice(Device::unknown("iPhone99,1")), Device::unknown("iPhone99,1"));
  const Device twice = Device::simulator(Device::simulator(Device::homePod));
  EXPECT_EQ(twice.real(), Device::simulator(Device::homePod));
  EXPECT_EQ(twice.real().real(), Device::homePod);
}

TEST(DeviceEquality, FollowsTheDescriptions) {
  struct Case {
    Device lhs, rhs;
    bool equal;
  };
  const Device x = Device::iPhoneX;
  for (const Case& c : std::vector<Case>{
           {Device::iPhone12, Device::iPhone12, true},
           {Device::iPhone12, Device::iPhone12Mini, false},
           {Device::unknown("iPhone X"), x, true},
           {x, Device::unknown("iPhone X"), true},
           {Device::unknown("iPhone XS"), Device::iPhoneXS, false},
           {Device::unknown("iPhone Xs"), Device::iPhoneXS, true},
           {Device::unknown("iPhone X\u0280"), Device::iPhoneXR, true},
           {Device::unknown("iPhone XR"), Device::iPhoneXR, false},
           {Device::simulator(x), x, false},
           {Device::simulator(x), Device::simulator(x), true},
           {Device::simulator(x), Device::simulator(Device::iPhoneXS), false},
           {Device::simulator(Device::simulator(x)), Device::simulator(x), false},
           {Device::unknown("a"), Device::unknown("a"), true},
           {Device::unknown("a"), Device::unknown("b"), false},
           {Device::unknown(""), Device::unknown(""), true},
           {Device::unknown(std::string(31, 'a')), Device::unknown(std::string(32, 'a')), false},
           {Device::unknown(std::string(32, 'a')), Device::unknown(std::string(32, 'a')), true},
           {Device::simulator(Device::unknown(std::string(40, 'b'))),
            Device::unknown("Simulator (" + std::string(40, 'b') + ")"), true},
           {Device::simulator(Device::unknown("iOS")), Device::unknown("Simulator (iOS)"), true},
           {Device::simulator(x), Device::unknown("Simulator (iPhone X)"), true},
           {Device::simulator(Device::unknown("iPhone X")), Device::simulator(x), true},
           {Device::unknown("Simulator (Simulator (HomePod))"),
            Device::simulator(Device::simulator(Device::homePod)), true},
           {Device::unknown("Simulator (HomePod)"), Device::homePod, false},
           {Device::unknown("Simulator ()"), Device::simulator(Device::unknown("")), true},
           {Device::unknown("Simulator (iOS"), Device::simulator(Device::unknown("iOS")), false},
           {Device::unknown("Simulator(iOS)"), Device::simulator(Device::unknown("iOS")), false},
       }) {
    SCOPED_TRACE(c.lhs.description() + " vs " + c.rhs.description());
    EXPECT_EQ(c.lhs == c.rhs, c.equal);
    EXPECT_EQ(c.rhs == c.lhs, c.equal);
    EXPECT_EQ(c.lhs != c.rhs, !c.equal);
    // The rule itself: equal exactly when the descriptions are.
    EXPECT_EQ(c.lhs.description() == c.rhs.description(), c.equal);
  }
}

TEST(DeviceEquality, EveryPairOfModelsAndTheirSimulators) {
  const auto& all = Device::allRealDevices();
  std::vector<Device> values(all.begin(), all.end());
  values.push_back(Device::homePod);
  for (const Device& a : values) {
    for (const Device& b : values) {
      const bool same = a.modelCase() == b.modelCase();
      ASSERT_EQ(a == b, same) << a << " / " << b;
      ASSERT_EQ(Device::simulator(a) == Device::simulator(b), same) << a << " / " << b;
      ASSERT_FALSE(Device::simulator(a) == b) << a << " / " << b;
      ASSERT_EQ(Device::unknown(a.description()) == b, same) << a << " / " << b;
    }
  }
}

TEST(DeviceIsOneOf, WalksTheListUnderDescriptionEquality) {
  EXPECT_FALSE(Device::iPhone12.isOneOf({}));
  EXPECT_FALSE(Device::iPhone12.isOneOf(std::vector<Device>{}));
  EXPECT_TRUE(Device::iPhone12.isOneOf({Device::iPhone11, Device::iPhone12}));
  EXPECT_FALSE(Device::iPhone12.isOneOf({Device::iPhone11, Device::iPhone12Mini}));
  EXPECT_TRUE(Device::iPhoneX.isOneOf({Device::unknown("iPhone X")}));
  EXPECT_FALSE(Device::iPhoneX.isOneOf({Device::simulator(Device::iPhoneX)}));
  EXPECT_TRUE(Device::simulator(Device::iPhoneX).isOneOf(Device::allSimulatorXSeriesDevices()));
}

TEST(DeviceValue, CopiesAreIndependentAtAnyDepth) {
  Device deep = Device::unknown("iPhone99,1");
  for (int level = 0; level < 50; ++level) deep = Device::simulator(deep);
  const Device copy = deep;
  Device moved = std::move(deep);
  EXPECT_EQ(copy, moved);
  moved = Device::iPhone4;
  EXPECT_EQ(copy.description().size(), std::string("iPhone99,1").size() + 50 * 12);
  EXPECT_NE(copy, moved);
}

TEST(CurrentDevice, AssignedIdentifierIsMappedOnEveryRead) {
  FakeDevicePlatform fakes("iPad14,5");
  EXPECT_EQ(Device::identifier(), "iPad14,5");
  EXPECT_EQ(Device::current(), Device::iPadPro12Inch6);
  Device::setIdentifier("iPhone99,1");
  EXPECT_EQ(Device::identifier(), "iPhone99,1");
  EXPECT_EQ(Device::current(), Device::unknown("iPhone99,1"));
  Device::setIdentifier("");
  EXPECT_EQ(Device::current(), Device::unknown(""));
}

}  // namespace
}  // namespace device_test
