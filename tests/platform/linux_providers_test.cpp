// The Linux providers: bundles, the vendor identifier, and device, screen and process facts read
// from a fake /sys and os-release. (The other simulated settings are checked through zelnora-host.)
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

#include <gtest/gtest.h>

#include "platform/Bundle.h"
#include "platform/src/FileRecheck.h"
#include "platform/src/LinuxDevice.h"
#include "platform/src/LinuxProviders.h"
#include "platform/src/VendorIdentifier.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using Setting = std::optional<std::string>;

// Sets (or, given no value, clears) a simulated setting for one scope; cleared again after it.
struct ScopedEnvironment {
  ScopedEnvironment(const char* name, Setting value) : name(name) {
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
  }
  ~ScopedEnvironment() { ::unsetenv(name); }
  const char* name;
};

// A fake /sys and os-release, and kept files (os-release, Info.plist) read again on every use.
class FakeSysfs : public ::testing::Test {
 protected:
  void SetUp() override { detail::setFileRecheckInterval(std::chrono::seconds(0)); }
  void TearDown() override { detail::setFileRecheckInterval(savedInterval); }
  void write(const std::string& relative, std::string_view content) {
    const std::filesystem::path path = std::filesystem::path(sys.path()) / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << content;
  }
  std::chrono::steady_clock::duration savedInterval = detail::fileRecheckInterval();
  test_support::TempDirectory sys;
  detail::LinuxDeviceFiles files{sys.path(), sys.file("os-release"), sys.file("container")};
  std::unique_ptr<CurrentDevice> device = detail::makeLinuxCurrentDevice(files);
  std::unique_ptr<ProcessInfo> process = detail::makeLinuxProcessInfo(files);
};

TEST_F(FakeSysfs, BundleResourcesInfoAndKeptFiles) {
  const auto info = [](std::string_view value) {
    return "<plist><dict><key>CFBundleIdentifier</key>" + std::string(value) + "</dict></plist>";
  };
  write("bundle/ZelnoraAdsConfig.plist", "");
  write("other/Info.plist", info("<string>com.example.other</string>"));
  std::filesystem::create_directory(sys.file("bundle/Folder.plist"));
  setMainBundleDirectory(sys.file("bundle"));
  MainBundle& bundle = linux_provider::mainBundle();
  EXPECT_EQ(bundle.pathForResource("ZelnoraAdsConfig", "plist"),
            sys.file("bundle/ZelnoraAdsConfig.plist"));
  EXPECT_FALSE(bundle.pathForResource("ZelnoraAdsConfig", "json") ||
               bundle.pathForResource("Folder", "plist") || bundle.infoDictionary());
  // clang-format off
  for (const auto& [text, identifier] : std::vector<std::pair<std::string, Setting>>{
      {"garbage", std::nullopt}, {info("<integer>7</integer>"), std::nullopt},
      {info("<string>com.example.first</string>"), "com.example.first"}}) {
    // clang-format on
    write("bundle/Info.plist", text);
    EXPECT_EQ(bundle.bundleIdentifier(), identifier) << text;
    EXPECT_EQ(bundle.infoDictionary().has_value(), text != "garbage");
  }
  setMainBundleDirectory(sys.file("other"));
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.other");
  setMainBundleDirectory("");
}

TEST_F(FakeSysfs, VendorIdentifierIsStoredPrivatelyAndOverriddenBySetting) {
  const std::regex uuidV4("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}");
  ScopedEnvironment unset("ZELNORA_SIM_VENDOR_ID", std::nullopt);
  const auto id = device->identifierForVendor();
  ASSERT_TRUE(id && std::regex_match(*id, uuidV4)) << id.value_or("none");
  EXPECT_EQ(detail::storedVendorIdentifier(files.containerDirectory), id);
  EXPECT_NE(detail::storedVendorIdentifier(sys.file("elsewhere")), id);
  struct stat info {};
  ::stat((files.containerDirectory + "/vendor-id").c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  write("garbled/vendor-id", "not a uuid");
  const auto replaced = detail::storedVendorIdentifier(sys.file("garbled"));
  EXPECT_TRUE(replaced && std::regex_match(*replaced, uuidV4));
  EXPECT_FALSE(detail::storedVendorIdentifier(sys.write("plain", "x") + "/c"));
  ScopedEnvironment uuid("ZELNORA_SIM_VENDOR_ID", "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d");
  EXPECT_EQ(device->identifierForVendor(), "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D");
  ScopedEnvironment custom("ZELNORA_SIM_VENDOR_ID", "custom-id");
  EXPECT_EQ(device->identifierForVendor(), "custom-id");
}

// Each row writes one file and reads one fact; "" means not written.
TEST_F(FakeSysfs, BatteryThermalScreenAndSystemReadingsFromFiles) {
  write("class/power_supply/AC/type", "Mains\n");
  write("class/power_supply/AC/capacity", "12\n");
  write("class/thermal/thermal_zone0/trip_point_0_type", "passive\n");
  write("class/thermal/thermal_zone0/trip_point_0_temp", "90000\n");
  write("class/thermal/thermal_zone0/trip_point_1_type", "critical\n");
  write("class/thermal/thermal_zone0/trip_point_1_temp", "105000\n");
  write("class/thermal/thermal_zone1/temp", "99000\n");  // no trip points: says nothing
  const auto screen = detail::makeLinuxMainScreen(files);
  device->setBatteryMonitoringEnabled(true);
  const auto version = [&] {
    const OperatingSystemVersion v = process->operatingSystemVersion();
    return std::to_string(v.majorVersion) + "." + std::to_string(v.minorVersion) + "." +
           std::to_string(v.patchVersion) + " " + device->systemVersion();
  };
  const std::map<std::string, std::function<std::string()>> facts = {
      {"level", [&] { return std::to_string(device->batteryLevel()); }},
      {"state", [&] { return std::to_string(static_cast<int>(device->batteryState())); }},
      {"thermal", [&] { return std::to_string(process->thermalState()); }},
      {"brightness", [&] { return std::to_string(screen->brightness()); }},
      {"low power", [&] { return std::to_string(process->isLowPowerModeEnabled()); }},
      {"version", version}};
  const std::string capacity = "class/power_supply/BAT1/capacity",
                    status = "class/power_supply/BAT1/status",
                    temp = "class/thermal/thermal_zone0/temp",
                    backlight = "class/backlight/intel_backlight/";
  // clang-format off
  const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
      {"", "", "level", "-1.000000"}, {"", "", "state", "0"}, {"", "", "thermal", "0"},
      {"", "", "brightness", "1.000000"}, {"", "", "low power", "0"},
      {"class/power_supply/BAT1/type", "Battery\n", "level", "-1.000000"},
      {capacity, "100\n", "level", "1.000000"}, {capacity, "50.5", "level", "0.505000"},
      {capacity, "85%", "level", "-1.000000"},
      {status, "Charging\n", "state", "2"}, {status, "Discharging\n", "state", "1"}, {status, "Full\n", "state", "3"},
      {temp, "81000\n", "thermal", "1"}, {temp, "90000\n", "thermal", "2"}, {temp, "105000\n", "thermal", "3"},
      {backlight + "max_brightness", "120\n", "brightness", "1.000000"}, {backlight + "brightness", "60\n", "brightness", "0.500000"},
      {"firmware/acpi/platform_profile", "low-power\n", "low power", "1"},
      {"os-release", "NAME=x\nVERSION_ID=22.04\n", "version", "22.4.0 22.04"},
      {"os-release", "NAME=x\nVERSION_ID=\"1.2.3.4\"\n", "version", "1.2.3 1.2.3.4"},
      {"os-release", "NAME=x\nVERSION_ID=\"rolling\"\n", "version", "0.0.0 rolling"}};
  // clang-format on
  for (const auto& [file, content, fact, expected] : rows) {
    if (!file.empty()) write(file, content);
    EXPECT_EQ(facts.at(fact)(), expected) << file << " " << content;
  }
  device->setBatteryMonitoringEnabled(false);
  EXPECT_EQ(facts.at("level")() + facts.at("state")(), "-1.0000000")
      << "read only while monitoring";
  write("os-release", "ID=custom\n");
  utsname fields{};
  ::uname(&fields);
  EXPECT_EQ(device->systemName() + device->systemVersion(),
            std::string(fields.sysname) + fields.release);
  const auto machine = linux_provider::systemInfo().unameMachine();
  EXPECT_EQ(std::string(machine.data(), machine.size()),
            fields.machine + std::string(machine.size() - std::strlen(fields.machine), '\0'));
  EXPECT_EQ(device->orientation(), DeviceOrientation::portrait);
  EXPECT_FALSE(device->isGuidedAccessEnabled());
  // clang-format off
  for (const auto& [setting, idiom, model] : std::vector<std::tuple<Setting, InterfaceIdiom, std::string>>{
      {std::nullopt, InterfaceIdiom::unspecified, "iPhone"}, {"phone", InterfaceIdiom::phone, "iPhone"},
      {"pad", InterfaceIdiom::pad, "iPad"}, {"Pad", InterfaceIdiom::unspecified, "iPhone"}}) {
    // clang-format on
    ScopedEnvironment simulated("ZELNORA_SIM_IDIOM", setting);
    EXPECT_EQ(device->userInterfaceIdiom(), idiom) << setting.value_or("(unset)");
    EXPECT_EQ(device->model() + " " + device->localizedModel(), model + " " + model);
  }
}

TEST(LinuxSystemInfo, VolumeCapacitiesAreByteCountsOfTheVolumeHoldingAPath) {
  using enum VolumeCapacityKey;
  const auto values = linux_provider::systemInfo().volumeCapacities(
      "/tmp", {volumeAvailableCapacityForImportantUsageKey, volumeTotalCapacityKey});
  ASSERT_TRUE(values && values->size() == 2u);
  const auto bytes = [&](VolumeCapacityKey key) { return std::get<std::int64_t>(values->at(key)); };
  EXPECT_LE(bytes(volumeAvailableCapacityForImportantUsageKey), bytes(volumeTotalCapacityKey));
  EXPECT_FALSE(linux_provider::systemInfo().volumeCapacities("/no/such", {volumeTotalCapacityKey}));
}

}  // namespace
}  // namespace platform
