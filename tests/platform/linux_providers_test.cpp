#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "../../platform/src/FileRecheck.h"
#include "../../platform/src/LinuxDevice.h"
#include "../../platform/src/LinuxProviders.h"
#include "../../platform/src/VendorIdentifier.h"
#include "platform/Bundle.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using test_support::ScopedEnvironment;
using test_support::TempDirectory;

const std::regex kCanonicalUuid("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");

std::string xmlPlist(std::string_view body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + std::string(body) +
         "</plist>";
}

// Writes `content` at `root`/`relative`, creating the folders on the way.
void writeFile(const std::string& root, const std::string& relative, std::string_view content) {
  const std::filesystem::path path = std::filesystem::path(root) / relative;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << content;
}

// Kept files (os-release, Info.plist) are looked at again on every use while it lives, so that a
// test can rewrite them in place and read the new text at once.
class RecheckInterval {
 public:
  explicit RecheckInterval(std::chrono::steady_clock::duration interval)
      : saved_(detail::fileRecheckInterval()) {
    detail::setFileRecheckInterval(interval);
  }
  ~RecheckInterval() { detail::setFileRecheckInterval(saved_); }
  RecheckInterval(const RecheckInterval&) = delete;
  RecheckInterval& operator=(const RecheckInterval&) = delete;

 private:
  std::chrono::steady_clock::duration saved_;
};

class MainBundleDirectory {
 public:
  explicit MainBundleDirectory(std::string directory) {
    setMainBundleDirectory(std::move(directory));
  }
  ~MainBundleDirectory() { setMainBundleDirectory(""); }
};

TEST(LinuxMainBundle, FindsResourcesAndInfoInTheConfiguredDirectory) {
  TempDirectory dir;
  dir.write("ZelnoraAdsConfig.plist", xmlPlist("<dict/>"));
  dir.write("Info.plist",
            xmlPlist(R"(<dict><key>CFBundleIdentifier</key><string>com.example.host</string>
      <key>CFBundleShortVersionString</key><string>3.1</string></dict>)"));
  std::filesystem::create_directory(dir.file("Folder.plist"));
  MainBundleDirectory guard(dir.path());
  MainBundle& bundle = linux_provider::mainBundle();

  EXPECT_EQ(bundle.pathForResource("ZelnoraAdsConfig", "plist"),
            dir.file("ZelnoraAdsConfig.plist"));
  EXPECT_FALSE(bundle.pathForResource("ZelnoraAdsConfig", "json").has_value());
  EXPECT_FALSE(bundle.pathForResource("Missing", "plist").has_value());
  EXPECT_FALSE(bundle.pathForResource("Folder", "plist").has_value());
  const auto info = bundle.infoDictionary();
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->at("CFBundleShortVersionString"), PropertyValue("3.1"));
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.host");
}

TEST(LinuxMainBundle, InfoThatIsMissingOrNotADictionaryGivesNothing) {
  TempDirectory dir;
  RecheckInterval everyUse(std::chrono::steady_clock::duration::zero());
  MainBundleDirectory guard(dir.path());
  MainBundle& bundle = linux_provider::mainBundle();
  EXPECT_FALSE(bundle.infoDictionary().has_value());
  EXPECT_FALSE(bundle.bundleIdentifier().has_value());

  dir.write("Info.plist", xmlPlist("<array><string>com.example</string></array>"));
  EXPECT_FALSE(bundle.infoDictionary().has_value());
  EXPECT_FALSE(bundle.bundleIdentifier().has_value());

  dir.write("Info.plist",
            xmlPlist("<dict><key>CFBundleIdentifier</key><integer>7</integer></dict>"));
  EXPECT_TRUE(bundle.infoDictionary().has_value());
  EXPECT_FALSE(bundle.bundleIdentifier().has_value());

  dir.write("Info.plist", "garbage");
  EXPECT_FALSE(bundle.infoDictionary().has_value());
}

TEST(LinuxMainBundle, DefaultsToTheExecutableDirectory) {
  setMainBundleDirectory("");
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(linux_provider::mainBundle().pathForResource(executable.filename().string(), ""),
            executable.string());
}

TEST(LinuxKitBundle, GivesVersionAndBuildAsText) {
  KitBundle& kit = linux_provider::kitBundle();
  for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion"}) {
    const auto value = kit.objectForInfoDictionaryKey(key);
    ASSERT_TRUE(value.has_value()) << key;
    ASSERT_NE(value->string(), nullptr) << key;
    EXPECT_FALSE(value->string()->empty()) << key;
  }
  EXPECT_FALSE(kit.objectForInfoDictionaryKey("CFBundleIdentifier").has_value());
}

TEST(SimulatedSettings, CarrierComesFromTheEnvironment) {
  Telephony& telephony = linux_provider::telephony();
  {
    ScopedEnvironment carrier("ZELNORA_SIM_CARRIER", std::nullopt);
    EXPECT_FALSE(telephony.serviceSubscriberCellularProviders().has_value());
  }
  ScopedEnvironment carrier("ZELNORA_SIM_CARRIER", "Carrier One");
  const auto providers = telephony.serviceSubscriberCellularProviders();
  ASSERT_TRUE(providers.has_value());
  ASSERT_EQ(providers->size(), 1u);
  EXPECT_EQ(providers->front().first, "0000000100000001");
  EXPECT_EQ(providers->front().second.carrierName, "Carrier One");
}

TEST(SimulatedSettings, LocationParsesLatitudeCommaLongitude) {
  const std::pair<std::optional<std::string>, std::optional<std::pair<double, double>>> cases[] = {
      {std::nullopt, std::nullopt},
      {"48.8566,2.3522", std::pair{48.8566, 2.3522}},
      {"-23.5505199,0", std::pair{-23.5505199, 0.0}},
      {"90,-180", std::pair{90.0, -180.0}},
      {"90.5,0", std::nullopt},
      {"0,180.1", std::nullopt},
      {"nan,1", std::nullopt},
      {"1,inf", std::nullopt},
      {"12.5", std::nullopt},
      {"1,2,3", std::nullopt},
      {"north,east", std::nullopt},
      {",", std::nullopt},
      {"", std::nullopt},
  };
  auto manager = linux_provider::locationServices().makeLocationManager();
  manager->requestAlwaysAuthorization();
  for (const auto& [setting, expected] : cases) {
    ScopedEnvironment location("ZELNORA_SIM_LOCATION", setting);
    const auto fix = manager->location();
    ASSERT_EQ(fix.has_value(), expected.has_value()) << setting.value_or("(unset)");
    if (fix) {
      EXPECT_DOUBLE_EQ(fix->latitude, expected->first);
      EXPECT_DOUBLE_EQ(fix->longitude, expected->second);
    }
  }
}

TEST(SimulatedSettings, AdvertisingIdentifierFollowsTheSettingOnEveryCall) {
  AdvertisingIdentifierManager& advertising = linux_provider::advertising();
  {
    ScopedEnvironment id("ZELNORA_SIM_ADVERTISING_ID", std::nullopt);
    EXPECT_FALSE(advertising.isAdvertisingTrackingEnabled());
  }
  {
    ScopedEnvironment id("ZELNORA_SIM_ADVERTISING_ID", "");
    EXPECT_FALSE(advertising.isAdvertisingTrackingEnabled());
  }
  ScopedEnvironment id("ZELNORA_SIM_ADVERTISING_ID", "6d1f0f4e-8b6a-4c1e-9a57-0c1d2e3f4a5b");
  EXPECT_TRUE(advertising.isAdvertisingTrackingEnabled());
  EXPECT_EQ(advertising.advertisingIdentifier(), "6D1F0F4E-8B6A-4C1E-9A57-0C1D2E3F4A5B");
  ::setenv("ZELNORA_SIM_ADVERTISING_ID", "11111111-2222-3333-4444-555555555555", 1);
  EXPECT_EQ(advertising.advertisingIdentifier(), "11111111-2222-3333-4444-555555555555");
}

TEST(SimulatedSettings, ClockTellsTheTimeSince1970) {
  const double before = static_cast<double>(std::time(nullptr));
  const double now = linux_provider::systemClock().timeIntervalSince1970();
  const double after = static_cast<double>(std::time(nullptr));
  EXPECT_GE(now, before);
  EXPECT_LT(now, after + 1);
}

TEST(LinuxVendorIdentifier, StableAcrossInstancesAndKeptPrivately) {
  TempDirectory dir;
  ScopedEnvironment simulated("ZELNORA_SIM_VENDOR_ID", std::nullopt);
  const std::string container = dir.file("share/zelnora/app-groups");
  const auto first = detail::makeLinuxCurrentDevice({.containerDirectory = container});
  const auto id = first->identifierForVendor();
  ASSERT_TRUE(id.has_value());
  EXPECT_TRUE(std::regex_match(*id, kCanonicalUuid)) << *id;
  EXPECT_EQ((*id)[14], '4');  // version 4 (random)
  const auto second = detail::makeLinuxCurrentDevice({.containerDirectory = container});
  EXPECT_EQ(second->identifierForVendor(), id);
  struct stat info {};
  ASSERT_EQ(::stat((container + "/vendor-id").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_NE(detail::storedVendorIdentifier(dir.file("elsewhere")), id);
}

TEST(LinuxVendorIdentifier, GarbledFileIsReplacedAndUnwritableContainerGivesNothing) {
  TempDirectory dir;
  ScopedEnvironment simulated("ZELNORA_SIM_VENDOR_ID", std::nullopt);
  dir.write("vendor-id", "not a uuid");
  const auto replaced = detail::storedVendorIdentifier(dir.path());
  ASSERT_TRUE(replaced.has_value());
  EXPECT_TRUE(std::regex_match(*replaced, kCanonicalUuid));
  EXPECT_EQ(detail::storedVendorIdentifier(dir.path()), replaced);
  const std::string plainFile = dir.write("plain", "x");
  const auto device = detail::makeLinuxCurrentDevice({.containerDirectory = plainFile + "/c"});
  EXPECT_FALSE(device->identifierForVendor().has_value());
}

TEST(LinuxVendorIdentifier, SimulatedSettingWins) {
  TempDirectory dir;
  const auto device = detail::makeLinuxCurrentDevice({.containerDirectory = dir.path()});
  {
    ScopedEnvironment simulated("ZELNORA_SIM_VENDOR_ID", "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d");
    EXPECT_EQ(device->identifierForVendor(), "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D");
  }
  {
    ScopedEnvironment simulated("ZELNORA_SIM_VENDOR_ID", "custom-id");
    EXPECT_EQ(device->identifierForVendor(), "custom-id");
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("vendor-id")));
  ScopedEnvironment empty("ZELNORA_SIM_VENDOR_ID", "");
  const auto stored = device->identifierForVendor();
  ASSERT_TRUE(stored.has_value());
  EXPECT_TRUE(std::regex_match(*stored, kCanonicalUuid));
  EXPECT_TRUE(std::filesystem::exists(dir.file("vendor-id")));
}

class FakeSysfs : public ::testing::Test {
 protected:
  detail::LinuxDeviceFiles files() const {
    return {.sysDirectory = sys_.path(),
            .osReleaseFile = sys_.file("os-release"),
            .containerDirectory = sys_.file("container")};
  }
  void write(const std::string& relative, std::string_view content) {
    writeFile(sys_.path(), relative, content);
  }
  TempDirectory sys_;
  RecheckInterval everyUse_{std::chrono::steady_clock::duration::zero()};
};

TEST_F(FakeSysfs, BatteryReadingsOnlyWhileMonitoring) {
  write("class/power_supply/AC/type", "Mains\n");
  write("class/power_supply/AC/capacity", "12\n");
  write("class/power_supply/BAT0/type", "Battery\n");
  write("class/power_supply/BAT0/capacity", "85\n");
  write("class/power_supply/BAT0/status", "Charging\n");
  const auto device = detail::makeLinuxCurrentDevice(files());
  EXPECT_FALSE(device->isBatteryMonitoringEnabled());
  EXPECT_EQ(device->batteryLevel(), -1.0f);
  EXPECT_EQ(device->batteryState(), 0);
  device->setBatteryMonitoringEnabled(true);
  EXPECT_TRUE(device->isBatteryMonitoringEnabled());
  EXPECT_FLOAT_EQ(device->batteryLevel(), 0.85f);
  EXPECT_EQ(device->batteryState(), 2);
}

TEST_F(FakeSysfs, BatteryLevelAndStateReadingsTable) {
  write("class/power_supply/BAT1/type", "Battery\n");
  const auto device = detail::makeLinuxCurrentDevice(files());
  device->setBatteryMonitoringEnabled(true);
  const std::pair<std::string, float> levels[] = {
      {"100\n", 1.0f}, {"0", 0.0f},    {"50.5", 0.505f}, {"150", -1.0f}, {"-3", -1.0f},
      {"nan", -1.0f},  {"inf", -1.0f}, {"abc", -1.0f},   {"", -1.0f},    {"85%", -1.0f}};
  for (const auto& [text, expected] : levels) {
    write("class/power_supply/BAT1/capacity", text);
    EXPECT_FLOAT_EQ(device->batteryLevel(), expected) << text;
  }
  const std::pair<std::string, int> states[] = {{"Charging", 2}, {"Discharging", 1},
                                                {"Full", 3},     {"Unknown", 0},
                                                {"", 0}};
  for (const auto& [text, expected] : states) {
    write("class/power_supply/BAT1/status", text + "\n");
    EXPECT_EQ(device->batteryState(), expected) << text;
  }
}

TEST_F(FakeSysfs, NoBatteryMeansUnknown) {
  write("class/power_supply/AC/type", "Mains\n");
  const auto device = detail::makeLinuxCurrentDevice(files());
  device->setBatteryMonitoringEnabled(true);
  EXPECT_EQ(device->batteryLevel(), -1.0f);
  EXPECT_EQ(device->batteryState(), 0);
}

TEST_F(FakeSysfs, SystemNameAndVersionFromOsRelease) {
  write("os-release",
        "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\n"
        "VERSION_ID=\"12\"\nID=debian\n");
  const auto device = detail::makeLinuxCurrentDevice(files());
  EXPECT_EQ(device->systemName(), "Debian GNU/Linux");
  EXPECT_EQ(device->systemVersion(), "12");
  EXPECT_EQ(device->orientation(), 1);
  EXPECT_FALSE(device->isGuidedAccessEnabled());
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  EXPECT_EQ(device->name(), host);

  write("os-release", "ID=custom\n");
  utsname fields{};
  ::uname(&fields);
  EXPECT_EQ(device->systemName(), fields.sysname);
  EXPECT_EQ(device->systemVersion(), fields.release);
}

// Within the recheck interval a kept file is not looked at, even when it changed; after it, or
// for another bundle directory, the new text is read.
TEST_F(FakeSysfs, KeptFilesAreLookedAtAgainAfterTheRecheckInterval) {
  TempDirectory bundleDir;
  const auto info = [](const std::string& identifier) {
    return xmlPlist("<dict><key>CFBundleIdentifier</key><string>" + identifier +
                    "</string></dict>");
  };
  bundleDir.write("Info.plist", info("com.example.first"));
  write("os-release", "NAME=\"First\"\n");
  MainBundleDirectory guard(bundleDir.path());
  MainBundle& bundle = linux_provider::mainBundle();
  const auto device = detail::makeLinuxCurrentDevice(files());
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
  EXPECT_EQ(device->systemName(), "First");

  {
    RecheckInterval anHour(std::chrono::hours(1));
    bundleDir.write("Info.plist", info("com.example.second"));
    write("os-release", "NAME=\"Second\"\n");
    EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
    EXPECT_EQ(device->systemName(), "First");

    TempDirectory otherBundle;
    otherBundle.write("Info.plist", info("com.example.other"));
    MainBundleDirectory moved(otherBundle.path());
    EXPECT_EQ(bundle.bundleIdentifier(), "com.example.other");
  }
  MainBundleDirectory back(bundleDir.path());
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.second");
  EXPECT_EQ(device->systemName(), "Second");
}

TEST_F(FakeSysfs, OperatingSystemVersionParts) {
  const auto info = detail::makeLinuxProcessInfo(files());
  const std::pair<std::string, std::array<int, 3>> cases[] = {
      {"VERSION_ID=\"12\"", {12, 0, 0}},     {"VERSION_ID=22.04", {22, 4, 0}},
      {"VERSION_ID='3.18.4'", {3, 18, 4}},   {"VERSION_ID=\"1.2.3.4\"", {1, 2, 3}},
      {"VERSION_ID=\"rolling\"", {0, 0, 0}},
  };
  for (const auto& [line, expected] : cases) {
    write("os-release", "NAME=x\n" + line + "\n");
    const OperatingSystemVersion version = info->operatingSystemVersion();
    EXPECT_EQ(
        (std::array<int, 3>{version.majorVersion, version.minorVersion, version.patchVersion}),
        expected)
        << line;
  }
}

TEST_F(FakeSysfs, IdiomAndModelFollowTheSimulatedSetting) {
  const auto device = detail::makeLinuxCurrentDevice(files());
  const std::tuple<std::optional<std::string>, InterfaceIdiom, std::string> cases[] = {
      {std::nullopt, InterfaceIdiom::unspecified, "iPhone"},
      {"phone", InterfaceIdiom::phone, "iPhone"},
      {"pad", InterfaceIdiom::pad, "iPad"},
      {"Pad", InterfaceIdiom::unspecified, "iPhone"},
      {"tv", InterfaceIdiom::unspecified, "iPhone"},
  };
  for (const auto& [setting, idiom, model] : cases) {
    ScopedEnvironment simulated("ZELNORA_SIM_IDIOM", setting);
    EXPECT_EQ(device->userInterfaceIdiom(), idiom) << setting.value_or("(unset)");
    EXPECT_EQ(device->model(), model);
    EXPECT_EQ(device->localizedModel(), model);
  }
}

TEST_F(FakeSysfs, ScreenBrightnessFromTheBacklight) {
  const auto screen = detail::makeLinuxMainScreen(files());
  EXPECT_DOUBLE_EQ(screen->brightness(), 1.0);
  write("class/backlight/intel_backlight/max_brightness", "0\n");
  write("class/backlight/intel_backlight/brightness", "0\n");
  EXPECT_DOUBLE_EQ(screen->brightness(), 1.0);
  write("class/backlight/intel_backlight/max_brightness", "120\n");
  write("class/backlight/intel_backlight/brightness", "60\n");
  EXPECT_DOUBLE_EQ(screen->brightness(), 0.5);
  EXPECT_DOUBLE_EQ(screen->scale(), 1.0);
  EXPECT_DOUBLE_EQ(screen->nativeScale(), 1.0);
}

TEST_F(FakeSysfs, LowPowerModeFromThePlatformProfile) {
  const auto info = detail::makeLinuxProcessInfo(files());
  EXPECT_FALSE(info->isLowPowerModeEnabled());
  write("firmware/acpi/platform_profile", "balanced\n");
  EXPECT_FALSE(info->isLowPowerModeEnabled());
  write("firmware/acpi/platform_profile", "low-power\n");
  EXPECT_TRUE(info->isLowPowerModeEnabled());
}

TEST_F(FakeSysfs, ThermalStateFromTheHottestZone) {
  const auto info = detail::makeLinuxProcessInfo(files());
  EXPECT_EQ(info->thermalState(), 0);
  write("class/thermal/thermal_zone0/trip_point_0_type", "passive\n");
  write("class/thermal/thermal_zone0/trip_point_0_temp", "90000\n");
  write("class/thermal/thermal_zone0/trip_point_1_type", "critical\n");
  write("class/thermal/thermal_zone0/trip_point_1_temp", "105000\n");
  write("class/thermal/thermal_zone1/temp", "99000\n");  // no trip points: says nothing
  const std::pair<std::string, int> cases[] = {{"40000", 0},  {"81000", 1},  {"90000", 2},
                                               {"101000", 2}, {"105000", 3}, {"garbled", 0}};
  for (const auto& [temperature, expected] : cases) {
    write("class/thermal/thermal_zone0/temp", temperature + "\n");
    EXPECT_EQ(info->thermalState(), expected) << temperature;
  }
}

TEST(LinuxProcessInfo, EnvironmentAndHome) {
  ProcessInfo& info = linux_provider::processInfo();
  {
    ScopedEnvironment variable("ZELNORA_TEST_VARIABLE", "value with spaces");
    EXPECT_EQ(info.environment("ZELNORA_TEST_VARIABLE"), "value with spaces");
  }
  EXPECT_FALSE(info.environment("ZELNORA_TEST_VARIABLE").has_value());
  ScopedEnvironment home("HOME", "/home/someone");
  EXPECT_EQ(info.homeDirectory(), "/home/someone");
  ScopedEnvironment noHome("HOME", std::nullopt);
  EXPECT_FALSE(info.homeDirectory().empty());
}

TEST(LinuxSystemInfo, UnameMachineIsZeroFilled) {
  const std::array<char, 256> machine = linux_provider::systemInfo().unameMachine();
  utsname fields{};
  ::uname(&fields);
  EXPECT_STREQ(machine.data(), fields.machine);
  for (std::size_t i = std::strlen(fields.machine); i < machine.size(); ++i) {
    ASSERT_EQ(machine[i], '\0') << i;
  }
}

TEST(LinuxSystemInfo, VolumeCapacitiesAreSane) {
  using enum VolumeCapacityKey;
  TempDirectory dir;
  const auto values = linux_provider::systemInfo().volumeCapacities(
      dir.path(), {volumeAvailableCapacityForImportantUsageKey, volumeAvailableCapacityKey,
                   volumeAvailableCapacityForOpportunisticUsageKey, volumeTotalCapacityKey});
  ASSERT_TRUE(values.has_value());
  ASSERT_EQ(values->size(), 4u);
  for (const auto& [key, value] : *values) ASSERT_EQ(value.index(), 0u) << "not std::int64_t";
  const std::int64_t total = std::get<0>(values->at(volumeTotalCapacityKey));
  const std::int64_t available = std::get<0>(values->at(volumeAvailableCapacityKey));
  EXPECT_GT(total, 0);
  EXPECT_GE(available, 0);
  EXPECT_LE(available, total);
  EXPECT_EQ(std::get<0>(values->at(volumeAvailableCapacityForImportantUsageKey)), available);
  EXPECT_EQ(std::get<0>(values->at(volumeAvailableCapacityForOpportunisticUsageKey)), available);

  const auto onlyTotal =
      linux_provider::systemInfo().volumeCapacities("/", {volumeTotalCapacityKey});
  ASSERT_TRUE(onlyTotal.has_value());
  EXPECT_EQ(onlyTotal->size(), 1u);
  EXPECT_FALSE(linux_provider::systemInfo()
                   .volumeCapacities(dir.file("missing/deeper"), {volumeTotalCapacityKey})
                   .has_value());
}

}  // namespace
}  // namespace platform
