// The Linux providers: bundles, simulated settings, the vendor identifier, and device, screen and
// process facts read from a fake /sys and os-release.
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <chrono>
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
using Setting = std::optional<std::string>;

const std::regex kUuidV4("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}");

std::string infoPlist(std::string_view dictBody) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" +
         std::string(dictBody) + "</dict></plist>";
}

// Kept files (os-release, Info.plist) are looked at again only after this interval.
struct RecheckInterval {
  explicit RecheckInterval(std::chrono::steady_clock::duration interval) {
    detail::setFileRecheckInterval(interval);
  }
  ~RecheckInterval() { detail::setFileRecheckInterval(saved); }
  std::chrono::steady_clock::duration saved = detail::fileRecheckInterval();
};

struct MainBundleDirectory {
  explicit MainBundleDirectory(const std::string& directory) { setMainBundleDirectory(directory); }
  ~MainBundleDirectory() { setMainBundleDirectory(""); }
};

TEST(LinuxBundles, ResourcesAndInfoOfTheMainAndKitBundles) {
  TempDirectory dir;
  RecheckInterval everyUse(std::chrono::steady_clock::duration::zero());
  dir.write("ZelnoraAdsConfig.plist", infoPlist(""));
  std::filesystem::create_directory(dir.file("Folder.plist"));
  MainBundleDirectory guard(dir.path());
  MainBundle& bundle = linux_provider::mainBundle();
  EXPECT_EQ(bundle.pathForResource("ZelnoraAdsConfig", "plist"),
            dir.file("ZelnoraAdsConfig.plist"));
  EXPECT_FALSE(bundle.pathForResource("ZelnoraAdsConfig", "json"));
  EXPECT_FALSE(bundle.pathForResource("Folder", "plist"));
  const std::pair<std::string, std::optional<std::string>> infos[] = {
      {infoPlist("<key>CFBundleIdentifier</key><string>com.example.host</string>"),
       "com.example.host"},
      {infoPlist("<key>CFBundleIdentifier</key><integer>7</integer>"), std::nullopt},
      {R"(<plist version="1.0"><array><string>com.example</string></array></plist>)", std::nullopt},
      {"garbage", std::nullopt},
  };
  EXPECT_FALSE(bundle.infoDictionary()) << "no Info.plist";
  for (const auto& [info, identifier] : infos) {
    dir.write("Info.plist", info);
    EXPECT_EQ(bundle.bundleIdentifier(), identifier) << info;
    EXPECT_EQ(bundle.infoDictionary().has_value(), info.find("<dict>") != std::string::npos);
  }
  setMainBundleDirectory("");
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(bundle.pathForResource(executable.filename().string(), ""), executable.string());

  for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion"}) {
    const auto value = linux_provider::kitBundle().objectForInfoDictionaryKey(key);
    ASSERT_TRUE(value && value->string()) << key;
    EXPECT_FALSE(value->string()->empty()) << key;
  }
}

// Within the recheck interval a kept file is not read again even when it changed; after it, or
// for another bundle directory, the new text is read.
TEST(LinuxBundles, KeptFilesAreReadAgainAfterTheRecheckInterval) {
  TempDirectory bundleDir, sys;
  const auto info = [](const std::string& id) {
    return infoPlist("<key>CFBundleIdentifier</key><string>" + id + "</string>");
  };
  bundleDir.write("Info.plist", info("com.example.first"));
  sys.write("os-release", "NAME=\"First\"\n");
  MainBundleDirectory guard(bundleDir.path());
  MainBundle& bundle = linux_provider::mainBundle();
  const auto device = detail::makeLinuxCurrentDevice(
      {.osReleaseFile = sys.file("os-release"), .containerDirectory = sys.file("c")});
  {
    RecheckInterval anHour(std::chrono::hours(1));
    EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
    EXPECT_EQ(device->systemName(), "First");
    bundleDir.write("Info.plist", info("com.example.second"));
    sys.write("os-release", "NAME=\"Second\"\n");
    EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
    EXPECT_EQ(device->systemName(), "First");
    TempDirectory otherBundle;
    otherBundle.write("Info.plist", info("com.example.other"));
    MainBundleDirectory moved(otherBundle.path());
    EXPECT_EQ(bundle.bundleIdentifier(), "com.example.other");
  }
  RecheckInterval everyUse(std::chrono::steady_clock::duration::zero());
  MainBundleDirectory back(bundleDir.path());
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.second");
  EXPECT_EQ(device->systemName(), "Second");
}

TEST(SimulatedSettings, CarrierLocationAdvertisingAndClock) {
  {
    ScopedEnvironment unset("ZELNORA_SIM_CARRIER", std::nullopt);
    EXPECT_FALSE(linux_provider::telephony().serviceSubscriberCellularProviders());
  }
  ScopedEnvironment carrier("ZELNORA_SIM_CARRIER", "Carrier One");
  const auto providers = linux_provider::telephony().serviceSubscriberCellularProviders();
  ASSERT_TRUE(providers && providers->size() == 1u);
  EXPECT_EQ(providers->front().first, "0000000100000001");
  EXPECT_EQ(providers->front().second.carrierName, "Carrier One");

  const std::pair<Setting, std::optional<std::pair<double, double>>> locations[] = {
      {std::nullopt, std::nullopt},
      {"48.8566,2.3522", std::pair{48.8566, 2.3522}},
      {"90,-180", std::pair{90.0, -180.0}},
      {"90.5,0", std::nullopt},
      {"0,180.1", std::nullopt},
      {"nan,1", std::nullopt},
      {"1,inf", std::nullopt},
      {"12.5", std::nullopt},
      {"1,2,3", std::nullopt},
      {"north,east", std::nullopt},
  };
  auto manager = linux_provider::locationServices().makeLocationManager();
  manager->requestAlwaysAuthorization();
  for (const auto& [setting, expected] : locations) {
    ScopedEnvironment location("ZELNORA_SIM_LOCATION", setting);
    const auto fix = manager->location();
    ASSERT_EQ(fix.has_value(), expected.has_value()) << setting.value_or("(unset)");
    if (fix) {
      EXPECT_EQ(std::pair(fix->latitude, fix->longitude), *expected);
    }
  }

  AdvertisingIdentifierManager& advertising = linux_provider::advertising();
  for (const Setting& off : {Setting(), Setting("")}) {
    ScopedEnvironment id("ZELNORA_SIM_ADVERTISING_ID", off);
    EXPECT_FALSE(advertising.isAdvertisingTrackingEnabled());
  }
  ScopedEnvironment id("ZELNORA_SIM_ADVERTISING_ID", "6d1f0f4e-8b6a-4c1e-9a57-0c1d2e3f4a5b");
  EXPECT_TRUE(advertising.isAdvertisingTrackingEnabled());
  EXPECT_EQ(advertising.advertisingIdentifier(), "6D1F0F4E-8B6A-4C1E-9A57-0C1D2E3F4A5B");

  const double before = static_cast<double>(std::time(nullptr));
  const double now = linux_provider::systemClock().timeIntervalSince1970();
  EXPECT_GE(now, before);
  EXPECT_LT(now, static_cast<double>(std::time(nullptr)) + 1);
}

TEST(LinuxVendorIdentifier, StoredPrivatelyStableAndOverriddenBySetting) {
  TempDirectory dir;
  ScopedEnvironment unset("ZELNORA_SIM_VENDOR_ID", std::nullopt);
  const std::string container = dir.file("share/zelnora/app-groups");
  const auto id =
      detail::makeLinuxCurrentDevice({.containerDirectory = container})->identifierForVendor();
  ASSERT_TRUE(id);
  EXPECT_TRUE(std::regex_match(*id, kUuidV4)) << *id;
  EXPECT_EQ(detail::storedVendorIdentifier(container), id);
  struct stat info {};
  ASSERT_EQ(::stat((container + "/vendor-id").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_NE(detail::storedVendorIdentifier(dir.file("elsewhere")), id);

  dir.write("garbled/vendor-id", "not a uuid");
  const auto replaced = detail::storedVendorIdentifier(dir.file("garbled"));
  ASSERT_TRUE(replaced);
  EXPECT_TRUE(std::regex_match(*replaced, kUuidV4));
  EXPECT_EQ(detail::storedVendorIdentifier(dir.file("garbled")), replaced);
  const std::string plainFile = dir.write("plain", "x");
  EXPECT_FALSE(detail::makeLinuxCurrentDevice({.containerDirectory = plainFile + "/c"})
                   ->identifierForVendor());

  const auto device = detail::makeLinuxCurrentDevice({.containerDirectory = dir.file("sim")});
  const std::pair<std::string, std::string> settings[] = {
      {"0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D"},
      {"custom-id", "custom-id"}};
  for (const auto& [setting, expected] : settings) {
    ScopedEnvironment simulated("ZELNORA_SIM_VENDOR_ID", setting);
    EXPECT_EQ(device->identifierForVendor(), expected);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("sim/vendor-id")));
}

class FakeSysfs : public ::testing::Test {
 protected:
  detail::LinuxDeviceFiles files() const {
    return {.sysDirectory = sys_.path(),
            .osReleaseFile = sys_.file("os-release"),
            .containerDirectory = sys_.file("container")};
  }
  void write(const std::string& relative, std::string_view content) {
    const std::filesystem::path path = std::filesystem::path(sys_.path()) / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << content;
  }
  TempDirectory sys_;
  RecheckInterval everyUse_{std::chrono::steady_clock::duration::zero()};
};

TEST_F(FakeSysfs, BatteryIsReadOnlyWhileMonitoringAndOnlyFromABattery) {
  write("class/power_supply/AC/type", "Mains\n");
  write("class/power_supply/AC/capacity", "12\n");
  const auto device = detail::makeLinuxCurrentDevice(files());
  device->setBatteryMonitoringEnabled(true);
  EXPECT_EQ(device->batteryLevel(), -1.0f) << "no battery";
  EXPECT_EQ(device->batteryState(), 0);
  write("class/power_supply/BAT1/type", "Battery\n");
  write("class/power_supply/BAT1/status", "Charging\n");
  const std::pair<std::string, float> levels[] = {
      {"100\n", 1.0f}, {"0", 0.0f},    {"50.5", 0.505f}, {"150", -1.0f}, {"-3", -1.0f},
      {"nan", -1.0f},  {"inf", -1.0f}, {"abc", -1.0f},   {"", -1.0f},    {"85%", -1.0f}};
  for (const auto& [text, expected] : levels) {
    write("class/power_supply/BAT1/capacity", text);
    EXPECT_FLOAT_EQ(device->batteryLevel(), expected) << text;
  }
  const std::pair<std::string, int> states[] = {
      {"Charging", 2}, {"Discharging", 1}, {"Full", 3}, {"Unknown", 0}, {"", 0}};
  for (const auto& [text, expected] : states) {
    write("class/power_supply/BAT1/status", text + "\n");
    EXPECT_EQ(device->batteryState(), expected) << text;
  }
  device->setBatteryMonitoringEnabled(false);
  EXPECT_EQ(device->batteryLevel(), -1.0f);
  EXPECT_EQ(device->batteryState(), 0);
}

TEST_F(FakeSysfs, SystemFactsFromOsReleaseAndUname) {
  const auto device = detail::makeLinuxCurrentDevice(files());
  const auto info = detail::makeLinuxProcessInfo(files());
  write("os-release",
        "PRETTY_NAME=\"Debian GNU/Linux 12\"\nNAME=\"Debian GNU/Linux\"\nID=debian\n");
  EXPECT_EQ(device->systemName(), "Debian GNU/Linux");
  const std::pair<std::string, std::array<int, 3>> versions[] = {
      {"VERSION_ID=\"12\"", {12, 0, 0}},     {"VERSION_ID=22.04", {22, 4, 0}},
      {"VERSION_ID='3.18.4'", {3, 18, 4}},   {"VERSION_ID=\"1.2.3.4\"", {1, 2, 3}},
      {"VERSION_ID=\"rolling\"", {0, 0, 0}},
  };
  for (const auto& [line, expected] : versions) {
    write("os-release", "NAME=x\n" + line + "\n");
    const OperatingSystemVersion v = info->operatingSystemVersion();
    EXPECT_EQ((std::array{v.majorVersion, v.minorVersion, v.patchVersion}), expected) << line;
  }
  EXPECT_EQ(device->systemVersion(), "rolling");
  write("os-release", "ID=custom\n");
  utsname fields{};
  ::uname(&fields);
  EXPECT_EQ(device->systemName(), fields.sysname);
  EXPECT_EQ(device->systemVersion(), fields.release);
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  EXPECT_EQ(device->name(), host);
  EXPECT_EQ(device->orientation(), 1);
  EXPECT_FALSE(device->isGuidedAccessEnabled());
  const std::array<char, 256> machine = linux_provider::systemInfo().unameMachine();
  EXPECT_STREQ(machine.data(), fields.machine);
  for (std::size_t i = std::strlen(fields.machine); i < machine.size(); ++i) {
    ASSERT_EQ(machine[i], '\0') << i;
  }
}

TEST_F(FakeSysfs, IdiomScreenPowerAndThermalReadings) {
  const auto device = detail::makeLinuxCurrentDevice(files());
  const std::tuple<Setting, InterfaceIdiom, std::string> idioms[] = {
      {std::nullopt, InterfaceIdiom::unspecified, "iPhone"},
      {"phone", InterfaceIdiom::phone, "iPhone"},
      {"pad", InterfaceIdiom::pad, "iPad"},
      {"Pad", InterfaceIdiom::unspecified, "iPhone"},
  };
  for (const auto& [setting, idiom, model] : idioms) {
    ScopedEnvironment simulated("ZELNORA_SIM_IDIOM", setting);
    EXPECT_EQ(device->userInterfaceIdiom(), idiom) << setting.value_or("(unset)");
    EXPECT_EQ(device->model(), model);
    EXPECT_EQ(device->localizedModel(), model);
  }

  const auto screen = detail::makeLinuxMainScreen(files());
  EXPECT_DOUBLE_EQ(screen->brightness(), 1.0) << "no backlight";
  write("class/backlight/intel_backlight/max_brightness", "0\n");
  write("class/backlight/intel_backlight/brightness", "0\n");
  EXPECT_DOUBLE_EQ(screen->brightness(), 1.0);
  write("class/backlight/intel_backlight/max_brightness", "120\n");
  write("class/backlight/intel_backlight/brightness", "60\n");
  EXPECT_DOUBLE_EQ(screen->brightness(), 0.5);
  EXPECT_DOUBLE_EQ(screen->scale(), 1.0);
  EXPECT_DOUBLE_EQ(screen->nativeScale(), 1.0);

  const auto info = detail::makeLinuxProcessInfo(files());
  EXPECT_FALSE(info->isLowPowerModeEnabled());
  write("firmware/acpi/platform_profile", "balanced\n");
  EXPECT_FALSE(info->isLowPowerModeEnabled());
  write("firmware/acpi/platform_profile", "low-power\n");
  EXPECT_TRUE(info->isLowPowerModeEnabled());

  EXPECT_EQ(info->thermalState(), 0);
  write("class/thermal/thermal_zone0/trip_point_0_type", "passive\n");
  write("class/thermal/thermal_zone0/trip_point_0_temp", "90000\n");
  write("class/thermal/thermal_zone0/trip_point_1_type", "critical\n");
  write("class/thermal/thermal_zone0/trip_point_1_temp", "105000\n");
  write("class/thermal/thermal_zone1/temp", "99000\n");  // no trip points: says nothing
  const std::pair<std::string, int> temperatures[] = {{"40000", 0},  {"81000", 1},  {"90000", 2},
                                                      {"101000", 2}, {"105000", 3}, {"garbled", 0}};
  for (const auto& [temperature, expected] : temperatures) {
    write("class/thermal/thermal_zone0/temp", temperature + "\n");
    EXPECT_EQ(info->thermalState(), expected) << temperature;
  }
}

TEST(LinuxProcessInfo, EnvironmentHomeAndVolumes) {
  ProcessInfo& info = linux_provider::processInfo();
  {
    ScopedEnvironment variable("ZELNORA_TEST_VARIABLE", "value with spaces");
    EXPECT_EQ(info.environment("ZELNORA_TEST_VARIABLE"), "value with spaces");
  }
  EXPECT_FALSE(info.environment("ZELNORA_TEST_VARIABLE"));
  {
    ScopedEnvironment home("HOME", "/home/someone");
    EXPECT_EQ(info.homeDirectory(), "/home/someone");
  }
  ScopedEnvironment noHome("HOME", std::nullopt);
  EXPECT_FALSE(info.homeDirectory().empty());

  using enum VolumeCapacityKey;
  TempDirectory dir;
  SystemInfo& system = linux_provider::systemInfo();
  const auto values = system.volumeCapacities(
      dir.path(), {volumeAvailableCapacityForImportantUsageKey, volumeAvailableCapacityKey,
                   volumeAvailableCapacityForOpportunisticUsageKey, volumeTotalCapacityKey});
  ASSERT_TRUE(values && values->size() == 4u);
  for (const auto& [key, value] : *values) ASSERT_EQ(value.index(), 0u) << "not std::int64_t";
  const std::int64_t total = std::get<0>(values->at(volumeTotalCapacityKey));
  const std::int64_t available = std::get<0>(values->at(volumeAvailableCapacityKey));
  EXPECT_GT(total, 0);
  EXPECT_GE(available, 0);
  EXPECT_LE(available, total);
  EXPECT_EQ(std::get<0>(values->at(volumeAvailableCapacityForImportantUsageKey)), available);
  EXPECT_EQ(std::get<0>(values->at(volumeAvailableCapacityForOpportunisticUsageKey)), available);
  EXPECT_EQ(system.volumeCapacities("/", {volumeTotalCapacityKey})->size(), 1u);
  EXPECT_FALSE(system.volumeCapacities(dir.file("missing/deeper"), {volumeTotalCapacityKey}));
}

}  // namespace
}  // namespace platform
