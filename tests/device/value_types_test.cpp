// The small value types of the catalog: CPU order and names, the Apple Pencil option set and the
// partial order of battery states.
#include <unordered_set>

#include <gtest/gtest.h>

#include "DeviceCatalog/ApplePencilSupport.h"
#include "DeviceCatalog/BatteryState.h"
#include "DeviceCatalog/CPU.h"
#include "DeviceCatalog/Device.h"

namespace device_test {
namespace {

using DeviceCatalog::ApplePencilSupport;
using DeviceCatalog::BatteryState;
using DeviceCatalog::CPU;

// In catalog order, with the names the catalog must give.
const std::vector<std::pair<CPU, std::string>>& cpusInOrder() {
  static const std::vector<std::pair<CPU, std::string>> cpus = {
      {CPU::a4, "A4"},
      {CPU::a5, "A5"},
      {CPU::a5X, "A5X"},
      {CPU::a6, "A6"},
      {CPU::a6X, "A6X"},
      {CPU::a7, "A7"},
      {CPU::a8, "A8"},
      {CPU::a8X, "A8X"},
      {CPU::a9, "A9"},
      {CPU::a9X, "A9X"},
      {CPU::a10Fusion, "A10 Fusion"},
      {CPU::a10XFusion, "A10X Fusion"},
      {CPU::a11Bionic, "A11 Bionic"},
      {CPU::a12Bionic, "A12 Bionic"},
      {CPU::a12XBionic, "A12X Bionic"},
      {CPU::a12ZBionic, "A12Z Bionic"},
      {CPU::a13Bionic, "A13 Bionic"},
      {CPU::a14Bionic, "A14 Bionic"},
      {CPU::a15Bionic, "A15 Bionic"},
      {CPU::a16Bionic, "A16 Bionic"},
      {CPU::a17Pro, "A17 Pro"},
      {CPU::m1, "M1"},
      {CPU::m2, "M2"},
      {CPU::unknown, "unknown"},
  };
  return cpus;
}

TEST(CPU, DescriptionsAreTheMarketingNames) {
  ASSERT_EQ(cpusInOrder().size(), 24u);
  for (const auto& [cpu, name] : cpusInOrder()) EXPECT_EQ(cpu.description(), name);
}

TEST(CPU, OrderFollowsTheListWithUnknownLast) {
  const auto& cpus = cpusInOrder();
  for (std::size_t i = 0; i < cpus.size(); ++i) {
    for (std::size_t j = 0; j < cpus.size(); ++j) {
      const CPU a = cpus[i].first, b = cpus[j].first;
      SCOPED_TRACE(cpus[i].second + " vs " + cpus[j].second);
      EXPECT_EQ(a < b, i < j);
      EXPECT_EQ(a <= b, i <= j);
      EXPECT_EQ(a > b, i > j);
      EXPECT_EQ(a >= b, i >= j);
      EXPECT_EQ(a == b, i == j);
    }
  }
  EXPECT_LT(CPU(CPU::a4), CPU(CPU::m2));
  EXPECT_LT(CPU(CPU::m2), CPU(CPU::unknown));
}

TEST(CPU, HashesDistinguishEveryCase) {
  std::unordered_set<CPU> set;
  for (const auto& entry : cpusInOrder()) set.insert(entry.first);
  EXPECT_EQ(set.size(), 24u);
  EXPECT_EQ(set.count(CPU::a17Pro), 1u);
}

TEST(CPU, SimulatorAndUnknownValues) {
  EXPECT_EQ(DeviceCatalog::Device::simulator(DeviceCatalog::Device::iPhone15Pro).cpu(),
            CPU::a17Pro);
  EXPECT_EQ(DeviceCatalog::Device::unknown("iPhone99,1").cpu().description(), "unknown");
}

TEST(ApplePencilSupport, RawValuesAndConstruction) {
  EXPECT_EQ(ApplePencilSupport::firstGeneration.rawValue(), 1u);
  EXPECT_EQ(ApplePencilSupport::secondGeneration.rawValue(), 2u);
  EXPECT_EQ(ApplePencilSupport().rawValue(), 0u);
  EXPECT_EQ(ApplePencilSupport(3), (ApplePencilSupport{ApplePencilSupport::firstGeneration,
                                                       ApplePencilSupport::secondGeneration}));
  EXPECT_TRUE(ApplePencilSupport{}.isEmpty());
  EXPECT_EQ(ApplePencilSupport(2), ApplePencilSupport::secondGeneration);
}

TEST(ApplePencilSupport, SetAlgebra) {
  const auto first = ApplePencilSupport::firstGeneration;
  const auto second = ApplePencilSupport::secondGeneration;
  const ApplePencilSupport both{first, second};
  EXPECT_EQ(first.unionWith(second), both);
  EXPECT_EQ(first | second, both);
  EXPECT_EQ(both.intersection(second), second);
  EXPECT_EQ(both & first, first);
  EXPECT_TRUE(first.intersection(second).isEmpty());
  EXPECT_EQ(both.symmetricDifference(first), second);
  EXPECT_EQ(first ^ first, ApplePencilSupport());
  EXPECT_EQ(both.subtracting(first), second);
  EXPECT_TRUE(first.isSubset(both));
  EXPECT_FALSE(both.isSubset(first));
  EXPECT_TRUE(both.isSuperset(second));
  EXPECT_TRUE(ApplePencilSupport().isSubset(first));
  EXPECT_TRUE(first.isDisjoint(second));
  EXPECT_FALSE(both.isDisjoint(second));
  EXPECT_TRUE(both.contains(first));
  EXPECT_FALSE(first.contains(second));
}

TEST(ApplePencilSupport, MutatingOperationsAnswerLikeASet) {
  ApplePencilSupport set;
  auto [inserted, member] = set.insert(ApplePencilSupport::firstGeneration);
  EXPECT_TRUE(inserted);
  EXPECT_EQ(member, ApplePencilSupport::firstGeneration);
  EXPECT_FALSE(set.insert(ApplePencilSupport::firstGeneration).first);
  EXPECT_EQ(set.update(ApplePencilSupport::secondGeneration), std::nullopt);
  EXPECT_EQ(set.update(ApplePencilSupport::secondGeneration), ApplePencilSupport::secondGeneration);
  EXPECT_EQ(set.rawValue(), 3u);
  EXPECT_EQ(set.remove(ApplePencilSupport::firstGeneration), ApplePencilSupport::firstGeneration);
  EXPECT_EQ(set.remove(ApplePencilSupport::firstGeneration), std::nullopt);
  EXPECT_EQ(set, ApplePencilSupport::secondGeneration);
  set.formUnion(ApplePencilSupport::firstGeneration);
  set.formIntersection(ApplePencilSupport::firstGeneration);
  EXPECT_EQ(set, ApplePencilSupport::firstGeneration);
  set.formSymmetricDifference(ApplePencilSupport(3));
  EXPECT_EQ(set, ApplePencilSupport::secondGeneration);
  set.subtract(ApplePencilSupport::secondGeneration);
  EXPECT_TRUE(set.isEmpty());
}

TEST(BatteryState, DescriptionsAreExact) {
  EXPECT_EQ(BatteryState::charging(50).description(), "Battery level: 50%, device is plugged in.");
  EXPECT_EQ(BatteryState::unplugged(7).description(), "Battery level: 7%, device is unplugged.");
  EXPECT_EQ(BatteryState::unplugged(-100).description(),
            "Battery level: -100%, device is unplugged.");
  EXPECT_EQ(BatteryState::full().description(),
            "Battery level: 100 % (Full), device is plugged in.");
}

TEST(BatteryState, EqualityIsSameCaseAndLevel) {
  EXPECT_EQ(BatteryState::charging(40), BatteryState::charging(40));
  EXPECT_NE(BatteryState::charging(40), BatteryState::unplugged(40));
  EXPECT_NE(BatteryState::charging(40), BatteryState::charging(41));
  EXPECT_EQ(BatteryState::full(), BatteryState::full());
  EXPECT_NE(BatteryState::charging(100), BatteryState::full());
}

TEST(BatteryState, PartialOrderByLevelWithFullOnTop) {
  struct Case {
    BatteryState lhs, rhs;
    bool less;
  };
  for (const Case& c : std::vector<Case>{
           {BatteryState::unplugged(99), BatteryState::full(), true},
           {BatteryState::full(), BatteryState::charging(100), false},
           {BatteryState::full(), BatteryState::full(), false},
           {BatteryState::charging(20), BatteryState::unplugged(30), true},
           {BatteryState::unplugged(20), BatteryState::charging(30), true},
           {BatteryState::charging(20), BatteryState::charging(30), true},
           {BatteryState::unplugged(30), BatteryState::unplugged(20), false},
           {BatteryState::charging(40), BatteryState::unplugged(40), false},
           {BatteryState::unplugged(40), BatteryState::charging(40), false},
           {BatteryState::charging(-100), BatteryState::charging(0), true},
       }) {
    SCOPED_TRACE(c.lhs.description() + " < " + c.rhs.description());
    EXPECT_EQ(c.lhs < c.rhs, c.less);
    EXPECT_EQ(c.rhs > c.lhs, c.less);
    EXPECT_EQ(c.rhs <= c.lhs, !c.less);
    EXPECT_EQ(c.lhs >= c.rhs, !c.less);
  }
  // Unordered yet unequal: neither is less, both <= hold.
  EXPECT_TRUE(BatteryState::charging(40) <= BatteryState::unplugged(40));
  EXPECT_TRUE(BatteryState::unplugged(40) <= BatteryState::charging(40));
}

}  // namespace
}  // namespace device_test
