// The device the program runs on: machine identifier to Device (table, unknown text, simulator
// rule), equality, the identifier's first read and assignment, the idiom rules and live status.
#include <cmath>
#include <latch>
#include <thread>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"

namespace DeviceCatalog {
namespace {

using namespace std::string_literals;
using platform::InterfaceIdiom;
using Key = platform::VolumeCapacityKey;

// Fake device, screen, process and system services for the life of a test, and a chosen machine
// identifier as the current one.
struct FakePlatform {
  explicit FakePlatform(std::string identifier = "iPhone15,2") {
    Device::setIdentifier(std::move(identifier));
  }
  platform::testing::FakeCurrentDevice device;
  platform::testing::FakeMainScreen screen;
  platform::testing::FakeProcessInfo process;
  platform::testing::FakeSystemInfo system;
  platform::testing::ScopedServices guard{[this](platform::Services& services) {
    services.device = &device;
    services.screen = &screen;
    services.processInfo = &process;
    services.system = &system;
  }};
};

TEST(MapToDevice, TableIdentifiersUnknownTextAndTheSimulatorRule) {
  FakePlatform fakes;
  for (const std::string& identifier : {"iphone15,2"s, "iPhone15,2\0"s, ""s, "iOS"s, "I386"s,
                                        std::string(32, 'a'), std::string(300, 'z')}) {
    const Device mapped = Device::mapToDevice(identifier);
    EXPECT_EQ(mapped.kind(), Device::Kind::unknown) << identifier;
    EXPECT_EQ(mapped.unknownIdentifier(), identifier);
    EXPECT_EQ(mapped.description(), identifier);
  }
  // clang-format off
  for (const auto& [variable, expected] : std::vector<std::pair<std::optional<std::string>, std::string>>{
      {"iPhone14,7", "Simulator (iPhone 14)"}, {std::nullopt, "Simulator (iOS)"},
      {"iPad99,9", "Simulator (iPad99,9)"}, {"x86_64", "Simulator (x86_64)"}, {"arm64", "Simulator (arm64)"}}) {
    // clang-format on
    fakes.process.env.erase("SIMULATOR_MODEL_IDENTIFIER");
    if (variable) fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = *variable;
    for (const char* machine : {"x86_64", "arm64", "i386"}) {
      const Device mapped = Device::mapToDevice(machine);
      EXPECT_EQ(mapped.description(), expected) << machine;
      EXPECT_EQ(mapped.real().kind() == Device::Kind::model, variable == "iPhone14,7") << machine;
    }
  }
  Device::setIdentifier("x86_64");
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad14,5";
  EXPECT_EQ(Device::current(), Device::simulator(Device::iPadPro12Inch6)) << "read on every call";
  EXPECT_EQ(Device::mapToDevice("iPhone15,2"), Device::iPhone14Pro) << "no rule for the table";
}

// Known models compare by model and depth; an unknown text equals the model or simulator it spells.
TEST(DeviceValue, EqualityFollowsTheDescriptions) {
  const Device x = Device::iPhoneX, sx = Device::simulator(Device::iPhoneX);
  // clang-format off
  for (const auto& [lhs, rhs, equal] : std::vector<std::tuple<Device, Device, bool>>{
      {Device::unknown("iPhone XS"), Device::iPhoneXS, false}, {Device::unknown("iPhone X\u0280"), Device::iPhoneXR, true},
      {sx, x, false}, {Device::simulator(sx), sx, false}, {Device::unknown(std::string(31, 'a')), Device::unknown(std::string(32, 'a')), false},
      {Device::simulator(Device::unknown("iPhone X")), Device::unknown("Simulator (iPhone X)"), true},
      {Device::unknown("Simulator (HomePod)"), Device::homePod, false}}) {
    // clang-format on
    EXPECT_EQ(lhs == rhs, equal) << lhs << " vs " << rhs;
    EXPECT_EQ(rhs != lhs, !equal) << lhs << " vs " << rhs;
  }
  EXPECT_TRUE(x.isOneOf({Device::iPhone11, Device::unknown("iPhone X")}) && !x.isOneOf({sx}));
}

// The first access to the identifier can happen only once per process, so these run in a fresh
// child process (threadsafe death-test style) that exits 0 when the check holds.
class DeviceIdentifierDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  template <typename Check>
  static void expectInFreshProcess(std::string_view machine, Check check) {
    EXPECT_EXIT(
        {
          platform::testing::FakeSystemInfo system;
          platform::testing::FakeProcessInfo process;
          std::copy_n(machine.begin(), std::min<std::size_t>(machine.size(), 256),
                      system.machine.begin());
          process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone16,1";
          platform::testing::ScopedServices guard([&](platform::Services& services) {
            services.system = &system;
            services.processInfo = &process;
          });
          std::exit(check(system) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "")
        << machine;
  }
};

TEST_F(DeviceIdentifierDeathTest, FirstReadJoinsTheNonZeroBytesOfTheMachineFieldOnce) {
  // clang-format off
  for (const auto& [field, expected] : std::vector<std::pair<std::string, std::string>>{
      {"iPhone15,2", "iPhone15,2"}, {"iPh\0one15,2"s, "iPhone15,2"}, {"\0\0iPad14,5\0\0x"s, "iPad14,5x"},
      {"", ""}, {std::string(256, 'a'), std::string(256, 'a')}, {"iPhone\xff\x80", "iPhone\xc3\xbf\xc2\x80"}}) {
    // clang-format on
    expectInFreshProcess(field, [&expected = expected](platform::testing::FakeSystemInfo& system) {
      const bool first = Device::identifier() == expected;
      system.machine.fill('z');  // read once: later reads return the stored text
      return first && Device::identifier() == expected;
    });
  }
  expectInFreshProcess(
      "x86_64", [](auto&) { return Device::current() == Device::simulator(Device::iPhone15Pro); });
}

TEST_F(DeviceIdentifierDeathTest, ConcurrentFirstReadersAllSeeTheOneReading) {
  expectInFreshProcess("iPhone16,2", [](auto&) {
    std::latch start(8);
    std::atomic<int> agree{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 8; ++i) {
      readers.emplace_back([&] {
        start.arrive_and_wait();
        agree +=
            Device::identifier() == "iPhone16,2" && Device::current() == Device::iPhone15ProMax;
      });
    }
    for (auto& reader : readers) reader.join();
    return agree == 8;
  });
}

TEST(DeviceIdentifierConcurrency, ReadersNeverSeeATornIdentifierWhileItIsAssigned) {
  FakePlatform fakes("iPhone16,2");
  const std::vector<std::string> texts = {"iPhone16,2", "iPad14,5", "AudioAccessory1,1"};
  std::latch start(3);
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread writer([&] {
    start.arrive_and_wait();
    for (int round = 0; round < 300; ++round) Device::setIdentifier(texts[round % 3]);
    done = true;
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      start.arrive_and_wait();
      while (!done) {
        torn += std::find(texts.begin(), texts.end(), Device::identifier()) == texts.end();
        torn += Device::current().kind() != Device::Kind::model;
      }
    });
  }
  writer.join();
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
}

// A listed phone is one under any idiom; the current device, when the table does not list it,
// follows the platform's idiom; a pod is never a phone.
TEST(PhoneAndPad, ListedModelsOrTheCurrentDeviceByItsIdiom) {
  FakePlatform fakes;
  // clang-format off
  for (const auto& [current, idiom, value, phone, pad] : std::vector<std::tuple<std::string, InterfaceIdiom, Device, bool, bool>>{
      {"iPod9,1", InterfaceIdiom::phone, Device::iPodTouch7, false, false},
      {"iPhone15,2", InterfaceIdiom::pad, Device::iPhoneSE3, true, false},
      {"iPhone99,1", InterfaceIdiom::phone, Device::unknown("iPhone99,1"), true, false},
      {"iPhone99,1", InterfaceIdiom::pad, Device::unknown("iPhone99,1"), false, true},
      {"iPhone15,2", InterfaceIdiom::phone, Device::unknown("iPhone99,1"), false, false},
      {"x86_64", InterfaceIdiom::pad, Device::simulator(Device::unknown("iPad99,9")), false, true},
      {"x86_64", InterfaceIdiom::pad, Device::simulator(Device::unknown("iPad98,9")), false, false},
      {"iPhone15,2", InterfaceIdiom::phone, Device::simulator(Device::iPadAir4), false, true}}) {
    // clang-format on
    Device::setIdentifier(current);
    fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPad99,9";
    fakes.device.idiom = idiom;
    EXPECT_EQ(value.isPhone(), phone) << current << " " << value;
    EXPECT_EQ(value.isPad(), pad) << current << " " << value;
  }
}

TEST(DeviceStatus, OnlyTheCurrentDeviceReadsThePlatformUnchanged) {
  FakePlatform fakes("iPhone15,2");
  fakes.device.nameValue = "Kim's phone";
  fakes.device.systemVersionValue = "17.4.1";
  fakes.device.localizedModelValue = "iPhone (localized)";
  for (const Device& current : {Device(Device::iPhone14Pro), Device::unknown("iPhone 14 Pro")}) {
    EXPECT_EQ(current.name().value_or("") + current.systemName().value_or("") +
                  current.systemVersion().value_or("") + current.model().value_or("") +
                  current.localizedModel().value_or(""),
              "Kim's phoneiOS17.4.1iPhoneiPhone (localized)");
    EXPECT_EQ(current.isCanvas(), false);
  }
  for (const Device& other : {Device(Device::iPhone4), Device::simulator(Device::iPhone14Pro),
                              Device::unknown("iPhone15,2")}) {
    EXPECT_FALSE(other.name() || other.systemName() || other.systemVersion() || other.model() ||
                 other.localizedModel() || other.batteryState() || other.batteryLevel() ||
                 other.thermalState() || other.isZoomed() || other.isCanvas())
        << other;
  }
  Device::setIdentifier("iPhone3,1");
  EXPECT_EQ(Device(Device::iPhone14Pro).name(), std::nullopt) << "the check follows assignment";
  // clang-format off
  for (const auto& [identifier, major, platformName, idiom, expected] : std::vector<std::tuple<std::string, int, std::string, InterfaceIdiom, std::string>>{
      {"iPad13,1", 13, "iOS", InterfaceIdiom::phone, "iPadOS"}, {"iPad13,1", 12, "iOS", InterfaceIdiom::phone, "iOS"},
      {"iPad13,1", 13, "ios", InterfaceIdiom::phone, "ios"}, {"iPhone15,2", 17, "iOS", InterfaceIdiom::phone, "iOS"},
      {"iPad99,1", 16, "iOS", InterfaceIdiom::pad, "iPadOS"}, {"iPad99,1", 16, "iOS", InterfaceIdiom::phone, "iOS"}}) {
    // clang-format on
    Device::setIdentifier(identifier);
    fakes.process.version = {major, 0, 0};
    fakes.device.systemNameValue = platformName;
    fakes.device.idiom = idiom;
    EXPECT_EQ(Device::current().systemName(), expected) << identifier << " " << major;
  }
}

TEST(DeviceStatus, BatteryThermalScreenAndVolumeReadings) {
  FakePlatform fakes("iPhone15,2");
  const Device current = Device::iPhone14Pro;
  const float nan = std::nanf(""), inf = INFINITY;
  constexpr int kMax = INT32_MAX, kMin = INT32_MIN;
  // clang-format off
  for (const auto& [code, level, expected] : std::vector<std::tuple<int, float, std::string>>{
      {1, 0.5f, "Battery level: 50%, device is unplugged."}, {1, 0.125f, "Battery level: 13%, device is unplugged."},
      {1, 0.124f, "Battery level: 12%, device is unplugged."}, {1, -0.005f, "Battery level: -1%, device is unplugged."},
      {1, nan, "Battery level: -100%, device is unplugged."}, {1, inf, "Battery level: " + std::to_string(kMax) + "%, device is unplugged."},
      {1, -inf, "Battery level: " + std::to_string(kMin) + "%, device is unplugged."},
      {2, 0.5f, "Battery level: 50%, device is plugged in."}, {3, 0.5f, "Battery level: 100 % (Full), device is plugged in."},
      {0, 0.5f, "Battery level: 100 % (Full), device is plugged in."}, {-1, 0.5f, "Battery level: 100 % (Full), device is plugged in."}}) {
    // clang-format on
    for (const bool monitoring : {false, true}) {
      fakes.device.state = static_cast<platform::DeviceBatteryState>(code);
      fakes.device.level = level;
      fakes.device.monitoring = monitoring;
      EXPECT_EQ(current.batteryState()->description(), expected) << code << " " << level;
      EXPECT_EQ(current.batteryLevel(), current.batteryState()->level());
      EXPECT_EQ(fakes.device.monitoring.load(), monitoring) << "the switch is put back";
    }
  }
  fakes.process.lowPower = true;
  EXPECT_TRUE(BatteryState::full().lowPowerMode());
  fakes.process.lowPower = false;
  EXPECT_FALSE(BatteryState::unplugged(3).lowPowerMode());
  for (int code = -1; code <= 8; ++code) {
    fakes.process.thermal = code;
    fakes.device.orientationCode = static_cast<platform::DeviceOrientation>(code);
    EXPECT_EQ(current.thermalState(), Device::ThermalState(code >= 1 && code <= 3 ? code : 0));
    EXPECT_EQ(Device(Device::iPhone4).orientation() == Device::Orientation::landscape,
              code == 3 || code == 4)
        << code;
  }
  // clang-format off
  for (const auto& [brightness, percent] : std::vector<std::pair<double, int>>{
      {0.567, 56}, {0.999, 99}, {1.0, 100}, {0.009, 0}, {-0.015, -1}, {std::nan(""), 0}, {1e300, kMax}, {-1e300, kMin}}) {
    // clang-format on
    fakes.screen.brightnessValue = brightness;
    EXPECT_EQ(Device::unknown("other").screenBrightness(), percent) << brightness;
  }
  // clang-format off
  for (const auto& [scale, nativeScale, zoomed] : std::vector<std::tuple<double, double, bool>>{
      {3, 2.88, true}, {3, 3.0, false}, {3, 2.7, false}, {3, 2.71, true}, {2.5, 3.1, false},
      {2, 2.34375, true}, {std::nan(""), 3, false}}) {
    // clang-format on
    fakes.screen.scaleValue = scale;
    fakes.screen.nativeScaleValue = nativeScale;
    EXPECT_EQ(current.isZoomed(), zoomed) << scale << " " << nativeScale;
  }
  fakes.device.guidedAccess = true;
  EXPECT_TRUE(Device(Device::homePod).isGuidedAccessSessionActive());

  // One query per single capacity; a value of another type is no byte count.
  auto& volumes = fakes.system.volumes.emplace();
  volumes[Key::volumeTotalCapacityKey].emplace<0>(std::int64_t{1} << 40);
  volumes[Key::volumeAvailableCapacityKey].emplace<1>(400);
  volumes[Key::volumeAvailableCapacityForOpportunisticUsageKey] = std::string("x");
  EXPECT_EQ(
      Device::volumeTotalCapacity().value_or(0) + Device::volumeAvailableCapacity().value_or(0),
      (std::int64_t{1} << 40) + 400);
  EXPECT_FALSE(Device::volumeAvailableCapacityForOpportunisticUsage());
  EXPECT_EQ(fakes.system.queries[1], std::vector{Key::volumeAvailableCapacityKey});
  EXPECT_EQ(Device::volumes()->size(), 3u) << "all four keys in one query, the three present kept";
  fakes.system.volumes = std::nullopt;
  EXPECT_FALSE(Device::volumes() || Device::volumeTotalCapacity());
}

}  // namespace
}  // namespace DeviceCatalog
