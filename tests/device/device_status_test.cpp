// The live status members against fake platform readings: the current-device check, system name,
// battery, thermal state, orientation, brightness, zoom and the volume capacities.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/FakeDevicePlatform.h"

namespace device_test {
namespace {

using BatteryState = Device::BatteryState;
using platform::InterfaceIdiom;
using platform::VolumeCapacityKey;

class DeviceStatusTest : public ::testing::Test {
 protected:
  FakeDevicePlatform fakes{"iPhone15,2"};  // the program runs on an iPhone 14 Pro
  const Device current = Device::iPhone14Pro;
};

TEST_F(DeviceStatusTest, OtherValuesThanTheCurrentDeviceAnswerAbsent) {
  for (const Device& other : {Device(Device::iPhone4), Device::simulator(Device::iPhone14Pro),
                              Device::unknown("iPhone99,1"), Device::unknown("iPhone15,2")}) {
    SCOPED_TRACE(other.description());
    EXPECT_EQ(other.name(), std::nullopt);
    EXPECT_EQ(other.systemName(), std::nullopt);
    EXPECT_EQ(other.systemVersion(), std::nullopt);
    EXPECT_EQ(other.model(), std::nullopt);
    EXPECT_EQ(other.localizedModel(), std::nullopt);
    EXPECT_EQ(other.batteryState(), std::nullopt);
    EXPECT_EQ(other.batteryLevel(), std::nullopt);
    EXPECT_EQ(other.thermalState(), std::nullopt);
    EXPECT_EQ(other.isZoomed(), std::nullopt);
    EXPECT_EQ(other.isCanvas(), std::nullopt);
  }
}

TEST_F(DeviceStatusTest, CurrentDeviceReadsThePlatformUnchanged) {
  fakes.device.nameValue = "Kim's phone";
  fakes.device.systemVersionValue = "17.4.1";
  fakes.device.modelValue = "iPhone";
  fakes.device.localizedModelValue = "iPhone (localized)";
  EXPECT_EQ(current.name(), "Kim's phone");
  EXPECT_EQ(current.systemName(), "iOS");
  EXPECT_EQ(current.systemVersion(), "17.4.1");
  EXPECT_EQ(current.model(), "iPhone");
  EXPECT_EQ(current.localizedModel(), "iPhone (localized)");
  EXPECT_EQ(current.isCanvas(), false);
  // An unknown value spelling the current model's name passes the check too.
  EXPECT_EQ(Device::unknown("iPhone 14 Pro").name(), "Kim's phone");
}

TEST_F(DeviceStatusTest, CurrentCheckFollowsLaterAssignments) {
  Device::setIdentifier("iPhone3,1");
  EXPECT_EQ(current.name(), std::nullopt);
  EXPECT_EQ(Device(Device::iPhone4).name(), "Test device");
}

TEST_F(DeviceStatusTest, SystemNameOfAnIpadFromVersion13IsIpados) {
  struct Case {
    std::string identifier;
    platform::OperatingSystemVersion version;
    std::string platformName;
    std::string expected;
  };
  for (const Case& c : std::vector<Case>{
           {"iPad13,1", {13, 0, 0}, "iOS", "iPadOS"},
           {"iPad13,1", {17, 1, 0}, "iOS", "iPadOS"},
           {"iPad13,1", {12, 4, 0}, "iOS", "iOS"},
           {"iPad13,1", {13, 0, 0}, "iPadOS", "iPadOS"},
           {"iPad13,1", {13, 0, 0}, "ios", "ios"},
           {"iPhone15,2", {17, 1, 0}, "iOS", "iOS"},
           {"iPod9,1", {15, 0, 0}, "iOS", "iOS"},
       }) {
    SCOPED_TRACE(c.identifier + " " + std::to_string(c.version.majorVersion) + " " +
                 c.platformName);
    Device::setIdentifier(c.identifier);
    fakes.process.version = c.version;
    fakes.device.systemNameValue = c.platformName;
    fakes.device.idiom = InterfaceIdiom::phone;
    EXPECT_EQ(Device::current().systemName(), c.expected);
  }
}

TEST_F(DeviceStatusTest, SystemNameOfAnUnknownCurrentPadUsesTheIdiom) {
  Device::setIdentifier("iPad99,1");
  fakes.process.version = {16, 0, 0};
  fakes.device.idiom = InterfaceIdiom::pad;
  EXPECT_EQ(Device::current().systemName(), "iPadOS");
  fakes.device.idiom = InterfaceIdiom::phone;
  EXPECT_EQ(Device::current().systemName(), "iOS");
}

TEST_F(DeviceStatusTest, BatteryLevelIsRoundedHalfAwayFromZero) {
  struct Case {
    float level;
    int percent;
  };
  fakes.device.state = 1;
  for (const Case& c : std::vector<Case>{{0.5f, 50},
                                         {0.125f, 13},
                                         {0.126f, 13},
                                         {0.124f, 12},
                                         {0.005f, 1},
                                         {0.0f, 0},
                                         {1.0f, 100},
                                         {-1.0f, -100},
                                         {-0.005f, -1}}) {
    fakes.device.level = c.level;
    EXPECT_EQ(current.batteryLevel(), c.percent) << c.level;
    EXPECT_EQ(current.batteryState(), BatteryState::unplugged(c.percent)) << c.level;
  }
}

TEST_F(DeviceStatusTest, BatteryStateCodesMapToCases) {
  struct Case {
    int code;
    BatteryState expected;
    int level;
    std::string description;
  };
  fakes.device.level = 0.5f;
  for (const Case& c : std::vector<Case>{
           {2, BatteryState::charging(50), 50, "Battery level: 50%, device is plugged in."},
           {1, BatteryState::unplugged(50), 50, "Battery level: 50%, device is unplugged."},
           {3, BatteryState::full(), 100, "Battery level: 100 % (Full), device is plugged in."},
           {0, BatteryState::full(), 100, "Battery level: 100 % (Full), device is plugged in."},
           {4, BatteryState::full(), 100, "Battery level: 100 % (Full), device is plugged in."},
           {-1, BatteryState::full(), 100, "Battery level: 100 % (Full), device is plugged in."},
       }) {
    SCOPED_TRACE(c.code);
    fakes.device.state = c.code;
    const auto state = current.batteryState();
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(*state, c.expected);
    EXPECT_EQ(state->description(), c.description);
    EXPECT_EQ(current.batteryLevel(), c.level);
  }
}

TEST_F(DeviceStatusTest, BatteryReadingRestoresTheMonitoringSwitch) {
  fakes.device.state = 2;
  for (bool before : {false, true}) {
    fakes.device.monitoring = before;
    // The fake reads -1 and "unknown" while monitoring is off, so these prove it was switched on.
    EXPECT_EQ(current.batteryState(), BatteryState::charging(50));
    EXPECT_EQ(fakes.device.monitoring.load(), before);
    EXPECT_EQ(current.batteryLevel(), 50);
    EXPECT_EQ(fakes.device.monitoring.load(), before);
  }
}

TEST_F(DeviceStatusTest, NonFiniteBatteryReadingsDoNotStopTheProgram) {
  fakes.device.state = 1;
  fakes.device.level = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(current.batteryLevel(), -100);
  fakes.device.level = std::numeric_limits<float>::infinity();
  EXPECT_EQ(current.batteryLevel(), std::numeric_limits<int>::max());
  fakes.device.level = -std::numeric_limits<float>::infinity();
  EXPECT_EQ(current.batteryLevel(), std::numeric_limits<int>::min());
  fakes.device.level = 1e30f;
  EXPECT_EQ(current.batteryLevel(), std::numeric_limits<int>::max());
}

TEST_F(DeviceStatusTest, LowPowerModeIsThePlatformsForEveryState) {
  fakes.process.lowPower = true;
  EXPECT_TRUE(BatteryState::full().lowPowerMode());
  EXPECT_TRUE(BatteryState::charging(3).lowPowerMode());
  fakes.process.lowPower = false;
  EXPECT_FALSE(BatteryState::unplugged(3).lowPowerMode());
}

TEST_F(DeviceStatusTest, ThermalStateCodes) {
  struct Case {
    int code;
    Device::ThermalState expected;
  };
  for (const Case& c : std::vector<Case>{{0, Device::ThermalState::nominal},
                                         {1, Device::ThermalState::fair},
                                         {2, Device::ThermalState::serious},
                                         {3, Device::ThermalState::critical},
                                         {7, Device::ThermalState::nominal},
                                         {-1, Device::ThermalState::nominal}}) {
    fakes.process.thermal = c.code;
    EXPECT_EQ(current.thermalState(), c.expected) << c.code;
  }
}

TEST_F(DeviceStatusTest, OrientationIsLandscapeOnlyForTheTwoLandscapeCodes) {
  for (int code = -1; code <= 8; ++code) {
    fakes.device.orientationCode = code;
    const auto expected =
        code == 3 || code == 4 ? Device::Orientation::landscape : Device::Orientation::portrait;
    EXPECT_EQ(current.orientation(), expected) << code;
    // Not limited to the current device.
    EXPECT_EQ(Device(Device::iPhone4).orientation(), expected) << code;
  }
}

TEST_F(DeviceStatusTest, ScreenBrightnessDropsTheFraction) {
  struct Case {
    double brightness;
    int percent;
  };
  for (const Case& c : std::vector<Case>{{0.567, 56},
                                         {1.0, 100},
                                         {0.999, 99},
                                         {0.0, 0},
                                         {0.009, 0},
                                         {-0.015, -1},
                                         {std::nan(""), 0},
                                         {1e300, std::numeric_limits<int>::max()},
                                         {-1e300, std::numeric_limits<int>::min()}}) {
    fakes.screen.brightnessValue = c.brightness;
    EXPECT_EQ(current.screenBrightness(), c.percent) << c.brightness;
    EXPECT_EQ(Device::unknown("other").screenBrightness(), c.percent) << c.brightness;
  }
}

TEST_F(DeviceStatusTest, ZoomBoundaries) {
  struct Case {
    double scale, nativeScale;
    bool zoomed;
  };
  for (const Case& c : std::vector<Case>{{3, 2.88, true},
                                         {3, 3.0, false},
                                         {3, 2.7, false},
                                         {3, 2.71, true},
                                         {3, 2.99, true},
                                         {2.5, 2.88, true},  // rounds to 3
                                         {2.5, 3.1, false},
                                         {3.4, 3.2, false},
                                         {2, 2.34375, true},
                                         {2, 2, false},
                                         {2, 1.9, false},
                                         {1, 1.5, true},
                                         {std::nan(""), 3, false},
                                         {3, std::nan(""), false}}) {
    fakes.screen.scaleValue = c.scale;
    fakes.screen.nativeScaleValue = c.nativeScale;
    EXPECT_EQ(current.isZoomed(), c.zoomed) << c.scale << " " << c.nativeScale;
  }
}

TEST_F(DeviceStatusTest, GuidedAccessIsReadForAnyValue) {
  fakes.device.guidedAccess = true;
  EXPECT_TRUE(Device(Device::homePod).isGuidedAccessSessionActive());
  fakes.device.guidedAccess = false;
  EXPECT_FALSE(current.isGuidedAccessSessionActive());
}

TEST_F(DeviceStatusTest, SingleVolumeCapacitiesAskForTheirOneKey) {
  fakes.system.volumes = std::map<VolumeCapacityKey, platform::VolumeValue>{
      {VolumeCapacityKey::volumeTotalCapacityKey,
       platform::VolumeValue(std::in_place_index<0>, 1000)},
      {VolumeCapacityKey::volumeAvailableCapacityKey,
       platform::VolumeValue(std::in_place_index<1>, 400)},
      {VolumeCapacityKey::volumeAvailableCapacityForImportantUsageKey,
       platform::VolumeValue(std::in_place_index<0>, std::int64_t{1} << 40)},
      {VolumeCapacityKey::volumeAvailableCapacityForOpportunisticUsageKey,
       platform::VolumeValue(std::string("not a number"))},
  };
  EXPECT_EQ(Device::volumeTotalCapacity(), 1000);
  EXPECT_EQ(Device::volumeAvailableCapacity(), 400);
  EXPECT_EQ(Device::volumeAvailableCapacityForImportantUsage(), std::int64_t{1} << 40);
  EXPECT_EQ(Device::volumeAvailableCapacityForOpportunisticUsage(), std::nullopt);
  using Keys = std::vector<VolumeCapacityKey>;
  EXPECT_EQ(
      fakes.system.queries,
      (std::vector<Keys>{{VolumeCapacityKey::volumeTotalCapacityKey},
                         {VolumeCapacityKey::volumeAvailableCapacityKey},
                         {VolumeCapacityKey::volumeAvailableCapacityForImportantUsageKey},
                         {VolumeCapacityKey::volumeAvailableCapacityForOpportunisticUsageKey}}));
}

TEST_F(DeviceStatusTest, VolumeCapacitiesAbsentWhenTheQueryFailsOrGivesNoValue) {
  fakes.system.volumes = std::nullopt;
  EXPECT_EQ(Device::volumeTotalCapacity(), std::nullopt);
  EXPECT_EQ(Device::volumes(), std::nullopt);
  fakes.system.volumes.emplace();
  EXPECT_EQ(Device::volumeTotalCapacity(), std::nullopt);
  EXPECT_EQ(Device::volumes(), (std::map<VolumeCapacityKey, std::int64_t>{}));
}

TEST_F(DeviceStatusTest, VolumesAskForAllFourKeysInOneQuery) {
  fakes.system.volumes = std::map<VolumeCapacityKey, platform::VolumeValue>{
      {VolumeCapacityKey::volumeTotalCapacityKey, platform::VolumeValue(std::in_place_index<1>, 9)},
      {VolumeCapacityKey::volumeAvailableCapacityKey, platform::VolumeValue(std::string("odd"))},
  };
  const auto volumes = Device::volumes();
  ASSERT_TRUE(volumes.has_value());
  EXPECT_EQ(*volumes, (std::map<VolumeCapacityKey, std::int64_t>{
                          {VolumeCapacityKey::volumeTotalCapacityKey, 9},
                          {VolumeCapacityKey::volumeAvailableCapacityKey, 0}}));
  ASSERT_EQ(fakes.system.queries.size(), 1u);
  EXPECT_EQ(fakes.system.queries[0],
            (std::vector<VolumeCapacityKey>{
                VolumeCapacityKey::volumeAvailableCapacityForImportantUsageKey,
                VolumeCapacityKey::volumeAvailableCapacityKey,
                VolumeCapacityKey::volumeAvailableCapacityForOpportunisticUsageKey,
                VolumeCapacityKey::volumeTotalCapacityKey}));
}

}  // namespace
}  // namespace device_test
