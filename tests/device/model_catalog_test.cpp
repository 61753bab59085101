// Every model case against the catalog as transcribed in ModelExpectations.h: identifiers, names
// and facts, for the plain, the simulated and the doubly simulated value.
#include <set>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/ModelExpectations.h"

namespace device_test {
namespace {

class ModelCatalogTest : public ::testing::TestWithParam<ExpectedModel> {};

TEST_P(ModelCatalogTest, EveryIdentifierMapsToTheCase) {
  const ExpectedModel& expected = GetParam();
  for (const std::string& identifier : expected.identifiers) {
    const Device mapped = Device::mapToDevice(identifier);
    EXPECT_EQ(mapped.modelCase(), expected.device.modelCase()) << identifier;
    EXPECT_EQ(mapped.kind(), Device::Kind::model) << identifier;
  }
}

TEST_P(ModelCatalogTest, DescriptionsAreByteExact) {
  const ExpectedModel& expected = GetParam();
  EXPECT_EQ(expected.device.description(), expected.description);
  EXPECT_EQ(expected.device.safeDescription(), expected.safeDescription);
  EXPECT_EQ(Device::simulator(expected.device).description(),
            "Simulator (" + expected.description + ")");
  EXPECT_EQ(Device::simulator(expected.device).safeDescription(),
            "Simulator (" + expected.safeDescription + ")");
}

TEST_P(ModelCatalogTest, FactsOfTheModel) {
  const ExpectedModel& expected = GetParam();
  const Device& device = expected.device;
  EXPECT_EQ(device.cpu(), expected.cpu);
  EXPECT_EQ(device.diagonal(), expected.diagonal);
  EXPECT_EQ(device.screenRatio(), expected.screenRatio);
  EXPECT_EQ(device.ppi(), expected.ppi);
  EXPECT_EQ(device.cameras(), expected.cameras);
  EXPECT_EQ(device.applePencilSupport().rawValue(), expected.applePencilRawValue);
}

TEST_P(ModelCatalogTest, SimulatorsShareTheFactsButHaveNoCamera) {
  const ExpectedModel& expected = GetParam();
  for (const Device& wrapped : {Device::simulator(expected.device),
                                Device::simulator(Device::simulator(expected.device))}) {
    SCOPED_TRACE(wrapped.description());
    EXPECT_EQ(wrapped.cpu(), expected.cpu);
    EXPECT_EQ(wrapped.diagonal(), expected.diagonal);
    EXPECT_EQ(wrapped.screenRatio(), expected.screenRatio);
    EXPECT_EQ(wrapped.ppi(), expected.ppi);
    EXPECT_EQ(wrapped.applePencilSupport().rawValue(), expected.applePencilRawValue);
    EXPECT_TRUE(wrapped.cameras().empty());
    EXPECT_FALSE(wrapped.hasCamera());
    EXPECT_FALSE(wrapped.hasWideCamera());
  }
}

TEST_P(ModelCatalogTest, CameraPredicatesFollowTheCameraList) {
  const ExpectedModel& expected = GetParam();
  auto has = [&](Device::CameraType type) {
    return std::find(expected.cameras.begin(), expected.cameras.end(), type) !=
           expected.cameras.end();
  };
  const Device& device = expected.device;
  EXPECT_EQ(device.hasCamera(), !expected.cameras.empty());
  EXPECT_EQ(device.hasNormalCamera(), has(Device::CameraType::wide));
  EXPECT_EQ(device.hasWideCamera(), has(Device::CameraType::wide));
  EXPECT_EQ(device.hasTelephotoCamera(), has(Device::CameraType::telephoto));
  EXPECT_EQ(device.hasUltraWideCamera(), has(Device::CameraType::ultraWide));
}

TEST_P(ModelCatalogTest, KindAndCaseOfTheValue) {
  const ExpectedModel& expected = GetParam();
  EXPECT_EQ(expected.device.kind(), Device::Kind::model);
  EXPECT_FALSE(expected.device.unknownIdentifier().has_value());
  const Device simulated = Device::simulator(expected.device);
  EXPECT_EQ(simulated.kind(), Device::Kind::simulator);
  EXPECT_FALSE(simulated.modelCase().has_value());
  EXPECT_EQ(simulated.real().modelCase(), expected.device.modelCase());
}

INSTANTIATE_TEST_SUITE_P(AllModels, ModelCatalogTest, ::testing::ValuesIn(expectedModels()),
                         [](const auto& info) { return info.param.caseName; });

TEST(ModelCatalog, SeventyFiveCasesInCatalogOrder) {
  ASSERT_EQ(expectedModels().size(), 75u);
  ASSERT_EQ(Device::kModelCount, 75u);
  for (std::size_t index = 0; index < expectedModels().size(); ++index) {
    const auto modelCase = expectedModels()[index].device.modelCase();
    ASSERT_TRUE(modelCase.has_value());
    EXPECT_EQ(static_cast<std::size_t>(*modelCase), index) << expectedModels()[index].caseName;
  }
}

TEST(ModelCatalog, NamesAreDistinctAcrossModels) {
  std::set<std::string> descriptions, safeDescriptions;
  for (const ExpectedModel& model : expectedModels()) {
    descriptions.insert(model.device.description());
    safeDescriptions.insert(model.device.safeDescription());
  }
  EXPECT_EQ(descriptions.size(), 75u);
  EXPECT_EQ(safeDescriptions.size(), 75u);
}

TEST(ModelCatalog, OnlyTheXsAndXrNamesDifferBetweenTheTwoDescriptions) {
  std::vector<std::string> differing;
  for (const ExpectedModel& model : expectedModels()) {
    if (model.device.description() != model.device.safeDescription()) {
      differing.push_back(model.caseName);
    }
  }
  EXPECT_EQ(differing, (std::vector<std::string>{"iPhoneXS", "iPhoneXSMax", "iPhoneXR"}));
}

TEST(ModelCatalog, XrDescriptionEndsInSmallCapitalR) {
  const std::string description = Device::iPhoneXR.description();
  ASSERT_EQ(description.size(), 10u);
  EXPECT_EQ(description.substr(0, 8), "iPhone X");
  EXPECT_EQ(static_cast<unsigned char>(description[8]), 0xCA);
  EXPECT_EQ(static_cast<unsigned char>(description[9]), 0x80);
  EXPECT_EQ(Device::iPhoneXR.safeDescription(), "iPhone XR");
}

TEST(ModelCatalog, IdentifiersAreUniqueAcrossTheTable) {
  std::set<std::string> seen;
  std::size_t count = 0;
  for (const ExpectedModel& model : expectedModels()) {
    for (const std::string& identifier : model.identifiers) {
      seen.insert(identifier);
      ++count;
    }
  }
  EXPECT_EQ(seen.size(), count);
}

TEST(ModelCatalog, NestedSimulatorDescriptions) {
  EXPECT_EQ(Device::simulator(Device::iPhoneXS).description(), "Simulator (iPhone Xs)");
  EXPECT_EQ(Device::simulator(Device::iPhoneXS).safeDescription(), "Simulator (iPhone XS)");
  EXPECT_EQ(Device::simulator(Device::simulator(Device::homePod)).description(),
            "Simulator (Simulator (HomePod))");
  EXPECT_EQ(Device::simulator(Device::unknown("iOS")).description(), "Simulator (iOS)");
}

TEST(ModelCatalog, UnknownValuesDescribeThemselvesAndHaveNoFacts) {
  for (const std::string identifier : {"iPhone99,1", ""}) {
    const Device device = Device::unknown(identifier);
    EXPECT_EQ(device.description(), identifier);
    EXPECT_EQ(device.safeDescription(), identifier);
    EXPECT_EQ(device.cpu(), CPU::unknown);
    EXPECT_EQ(device.diagonal(), -1);
    EXPECT_EQ(device.screenRatio(), (Device::ScreenRatio{-1, -1}));
    EXPECT_EQ(device.ppi(), std::nullopt);
    EXPECT_TRUE(device.cameras().empty());
    EXPECT_TRUE(device.applePencilSupport().isEmpty());
  }
  // Unwrapping reaches an unknown inside simulators too.
  EXPECT_EQ(Device::simulator(Device::unknown("iPhone99,1")).cpu(), CPU::unknown);
  EXPECT_EQ(Device::simulator(Device::unknown("iPhone99,1")).ppi(), std::nullopt);
}

TEST(ModelCatalog, UnknownSpellingAModelNameKeepsUnknownFacts) {
  // Equal to iPhoneX by description, but still an unknown value for the facts.
  const Device spelled = Device::unknown("iPhone X");
  EXPECT_EQ(spelled, Device::iPhoneX);
  EXPECT_EQ(spelled.cpu(), CPU::unknown);
  EXPECT_FALSE(spelled.hasCamera());
}

}  // namespace
}  // namespace device_test
