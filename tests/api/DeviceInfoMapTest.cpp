// The device information map against fake platform readings: every key present and absent, and
// the formatting rules of its values.
#include <stdlib.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <locale>
#include <map>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "KitInternals.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportHelper.h"

// glibc keeps the LOCPATH search list it builds in setlocale for the rest of the process; this
// hook is read by LeakSanitizer in sanitizer builds and is inert otherwise.
extern "C" const char* __lsan_default_suppressions() { return "leak:__argz_add_sep\n"; }

namespace zelnora_core {
namespace {

using InfoMap = std::map<std::string, std::string>;
using platform::PropertyDictionary;

class DeviceInfoMap : public ::testing::Test {
 protected:
  DeviceInfoMap() {
    processInfo_.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone16,1";
    system_.setMachine("iPhone16,1");
  }

  // Every optional source gives a value.
  void fillEverySource() {
    device_.vendorId = "0f8fad5b-d9cb-469f-a165-70867728950e";
    device_.level = 0.85f;
    mainBundle_.info =
        PropertyDictionary{{"CFBundleIdentifier", "com.host.app.ZelnoraAdsNotificationService"},
                           {"CFBundleShortVersionString", "4.2.1"}};
    kitBundle_.entries = {{"CFBundleShortVersionString", "2.3.0"}, {"CFBundleVersion", "41"}};
    telephony_.providers = {{{"0000000100000001", {"Zelnora Mobile"}}, {"2", {"Other"}}}};
    location_.fix = platform::Coordinate{-23.5505199, 0.0};
    advertising_.trackingEnabled = true;
    advertising_.identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
    ZAPreferencesUtil::saveUserData("user-1");
  }

  static std::string hardware() {
    return std::string(DeviceCatalog::Device::current().cpu().description());
  }
  static std::string model() { return DeviceCatalog::Device::current().safeDescription(); }

  std::optional<std::string> valueOf(const std::string& key) {
    InfoMap map = ZAReportHelper::getDeviceInfoMap();
    auto it = map.find(key);
    return it == map.end() ? std::nullopt : std::optional(it->second);
  }

  platform::testing::FakeConsole console_;
  platform::testing::FakeMainBundle mainBundle_;
  platform::testing::FakeKitBundle kitBundle_;
  platform::testing::InMemoryUserDefaults store_;
  platform::testing::FakeCurrentDevice device_;
  platform::testing::FakeProcessInfo processInfo_;
  platform::testing::FakeSystemInfo system_;
  platform::testing::FakeTelephony telephony_;
  platform::testing::FakeLocationServices location_;
  platform::testing::FakeAdvertising advertising_;
  platform::testing::FakeClock clock_;
  platform::testing::ScopedServices guard_{[this](platform::Services& s) {
    s.console = &console_;
    s.mainBundle = &mainBundle_;
    s.kitBundle = &kitBundle_;
    s.userDefaults = &store_;
    s.device = &device_;
    s.processInfo = &processInfo_;
    s.system = &system_;
    s.telephony = &telephony_;
    s.location = &location_;
    s.advertising = &advertising_;
    s.clock = &clock_;
  }};
};

TEST_F(DeviceInfoMap, EverySourcePresentGivesAllSeventeenKeys) {
  fillEverySource();
  clock_.now = 1700000000.1236;
  const InfoMap expected{
      {"deviceId", "0F8FAD5B-D9CB-469F-A165-70867728950E"},
      {"appVersion", "4.2.1"},
      {"appId", "com.host.app"},
      {"sdkVersion", "2.3.0(41)"},
      {"brand", "Apple"},
      {"hardware", hardware()},
      {"manufacturer", "Apple"},
      {"model", model()},
      {"product", "iPhone"},
      {"osVersion", "17.1"},
      {"os", "iOS"},
      {"eventDate", "1700000000124"},
      {"carrier", "Zelnora Mobile"},
      {"battery", "85"},
      {"lat", "-23.550520"},
      {"long", "0.000000"},
      {"adId", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
  };
  EXPECT_EQ(ZAReportHelper::getDeviceInfoMap(), expected);
  EXPECT_FALSE(hardware().empty());
  EXPECT_FALSE(model().empty());
}

// On this platform the current device always answers its status members, so "product", "os",
// "osVersion" and "battery" stay; everything that may be missing is.
TEST_F(DeviceInfoMap, EveryOptionalSourceMissingLeavesOnlyTheFixedFacts) {
  device_.state = 3;  // full
  InfoMap map = ZAReportHelper::getDeviceInfoMap();
  const InfoMap expected{
      {"brand", "Apple"}, {"hardware", hardware()},       {"manufacturer", "Apple"},
      {"model", model()}, {"product", "iPhone"},          {"osVersion", "17.1"},
      {"os", "iOS"},      {"eventDate", "1700000000000"}, {"battery", "100"}};
  EXPECT_EQ(map, expected);
  EXPECT_TRUE(console_.pieces().empty()) << "the map prints nothing";
}

TEST_F(DeviceInfoMap, VendorIdentifierInCanonicalFormOrLeftOut) {
  device_.vendorId = "0f8fad5b-d9cb-469f-a165-70867728950e";
  EXPECT_EQ(valueOf("deviceId"), "0F8FAD5B-D9CB-469F-A165-70867728950E");
  device_.vendorId = "not-a-uuid";
  EXPECT_EQ(valueOf("deviceId"), std::nullopt);
  device_.vendorId.reset();
  EXPECT_EQ(valueOf("deviceId"), std::nullopt);
}

TEST_F(DeviceInfoMap, AppVersionOnlyFromANonEmptyDictionaryHoldingText) {
  EXPECT_EQ(valueOf("appVersion"), std::nullopt);
  for (const PropertyDictionary& info :
       {PropertyDictionary{}, PropertyDictionary{{"CFBundleIdentifier", "a"}},
        PropertyDictionary{{"CFBundleShortVersionString", std::int64_t{3}}}}) {
    mainBundle_.info = info;
    EXPECT_EQ(valueOf("appVersion"), std::nullopt);
  }
  mainBundle_.info = PropertyDictionary{{"CFBundleShortVersionString", ""}};
  EXPECT_EQ(valueOf("appVersion"), "");
}

TEST_F(DeviceInfoMap, AppIdLosesEveryExtensionSuffixCaseSensitively) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"com.host", "com.host"},
      {"com.host.ZelnoraAdsNotificationService", "com.host"},
      {"a.ZelnoraAdsNotificationService.b.ZelnoraAdsNotificationService", "a.b"},
      {"com.host.zelnoraAdsNotificationService", "com.host.zelnoraAdsNotificationService"},
      {".ZelnoraAdsNotificationService", ""},
  };
  for (const auto& [identifier, appId] : cases) {
    mainBundle_.info = PropertyDictionary{{"CFBundleIdentifier", identifier}};
    EXPECT_EQ(valueOf("appId"), appId) << identifier;
  }
  mainBundle_.info = PropertyDictionary{{"CFBundleIdentifier", std::int64_t{1}}};
  EXPECT_EQ(valueOf("appId"), std::nullopt);
}

TEST_F(DeviceInfoMap, SdkVersionNeedsBothEntriesAsText) {
  using Entries = std::map<std::string, platform::PropertyValue>;
  const std::vector<std::pair<Entries, std::optional<std::string>>> cases{
      {{{"CFBundleShortVersionString", "2.3.0"}, {"CFBundleVersion", "41"}}, "2.3.0(41)"},
      {{{"CFBundleShortVersionString", "2.3.0"}}, std::nullopt},
      {{{"CFBundleVersion", "41"}}, std::nullopt},
      {{{"CFBundleShortVersionString", "2.3.0"}, {"CFBundleVersion", std::int64_t{41}}},
       std::nullopt},
      {{{"CFBundleShortVersionString", 2.3}, {"CFBundleVersion", "41"}}, std::nullopt},
      {{}, std::nullopt},
  };
  for (const auto& [entries, sdkVersion] : cases) {
    kitBundle_.entries = entries;
    EXPECT_EQ(valueOf("sdkVersion"), sdkVersion);
  }
}

TEST_F(DeviceInfoMap, CarrierOnlyFromTheFirstProvider) {
  using Providers = std::vector<std::pair<std::string, platform::Carrier>>;
  const std::vector<std::pair<std::optional<Providers>, std::optional<std::string>>> cases{
      {std::nullopt, std::nullopt},
      {Providers{}, std::nullopt},
      {Providers{{"1", {std::nullopt}}, {"2", {"Second"}}}, std::nullopt},
      {Providers{{"1", {"First"}}, {"2", {"Second"}}}, "First"},
      {Providers{{"1", {""}}}, ""},
  };
  for (const auto& [providers, carrier] : cases) {
    telephony_.providers = providers;
    EXPECT_EQ(valueOf("carrier"), carrier);
  }
}

TEST_F(DeviceInfoMap, LocationGivesBothCoordinatesOrNeither) {
  InfoMap without = ZAReportHelper::getDeviceInfoMap();
  EXPECT_EQ(without.count("lat") + without.count("long"), 0u);
  location_.fix = platform::Coordinate{48.8583701, -2.2944813};
  InfoMap with = ZAReportHelper::getDeviceInfoMap();
  EXPECT_EQ(with["lat"], "48.858370");
  EXPECT_EQ(with["long"], "-2.294481");
  EXPECT_EQ(location_.authorizationRequests, 0) << "the map asks for no authorisation";
}

TEST_F(DeviceInfoMap, AdvertisingIdOnlyFromAStoredRecordThatHasOne) {
  EXPECT_EQ(valueOf("adId"), std::nullopt);
  ZAPreferencesUtil::saveUserData("user-1");  // tracking off: record without identifier
  EXPECT_EQ(valueOf("adId"), std::nullopt);
  advertising_.trackingEnabled = true;
  advertising_.identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  ZAPreferencesUtil::saveUserData("user-1");
  InfoMap map = ZAReportHelper::getDeviceInfoMap();
  EXPECT_EQ(map["adId"], "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  EXPECT_EQ(map.count("userId"), 0u);
}

TEST_F(DeviceInfoMap, EventDateRoundsMillisecondsHalfAwayFromZero) {
  clock_.now = 1700000000.1236;
  EXPECT_EQ(valueOf("eventDate"), "1700000000124");
  clock_.now = 1700000000.1234;
  EXPECT_EQ(valueOf("eventDate"), "1700000000123");
}

TEST_F(DeviceInfoMap, BatteryLevelInPercent) {
  device_.level = 0.85f;
  EXPECT_EQ(valueOf("battery"), "85");
  EXPECT_FALSE(device_.monitoring) << "the battery reading restores the monitoring switch";
}

TEST(DeviceInfoFormatting, EventDateTextTable) {
  const std::vector<std::pair<double, std::optional<std::string>>> cases{
      {0.0, "0"},
      {0.0025, "3"},  // 2.5 ms: half away from zero, not to even
      {-0.0025, "-3"},
      {0.0015, "2"},
      {-1.0, "-1000"},
      {9.2e15, "9200000000000000000"},
      {9.3e15, std::nullopt},  // beyond a signed 64-bit count of milliseconds
      {-9.3e15, std::nullopt},
      {std::numeric_limits<double>::infinity(), std::nullopt},
      {std::nan(""), std::nullopt},
  };
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(detail::eventDateText(seconds), text) << seconds;
  }
}

TEST(DeviceInfoFormatting, FixedSixDecimalsLikePrintfInTheCLocale) {
  const std::vector<std::pair<double, std::string>> cases{
      {-23.5505199, "-23.550520"},    {0.0, "0.000000"},  {-0.0, "-0.000000"},
      {180.0, "180.000000"},          {1e-7, "0.000000"}, {0.0000006, "0.000001"},
      {0.0000005, "0.000000"},  // just below one half in binary
      {12345678.9, "12345678.900000"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(detail::fixedSixDecimals(value), text);
}

// A locale writing decimal commas: an installed one, or else one compiled with localedef into a
// temporary directory (LOCPATH). Restores the process locale however the test ends.
class CommaDecimalLocale {
 public:
  CommaDecimalLocale() : previousC_(std::setlocale(LC_ALL, nullptr)) {
    if (!tryInstalled() && !tryCompiled()) return;
    char text[32];
    std::snprintf(text, sizeof text, "%f", 1.5);
    commaActive_ = std::string(text) == "1,500000";
  }
  ~CommaDecimalLocale() {
    std::setlocale(LC_ALL, previousC_.c_str());
    if (!name_.empty()) std::locale::global(previousCpp_);
  }
  bool active() const { return commaActive_; }

 private:
  bool use(const char* name) {
    if (std::setlocale(LC_ALL, name) == nullptr) return false;
    name_ = name;
    try {
      previousCpp_ = std::locale::global(std::locale(name));
    } catch (const std::runtime_error&) {
      // The C locale alone is enough for printf-style formatting.
    }
    return true;
  }
  bool tryInstalled() {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8",
                             "nl_NL.UTF-8", "es_ES.UTF-8", "it_IT.UTF-8"}) {
      if (use(name)) return true;
    }
    return false;
  }
  bool tryCompiled() {
    char pattern[] = "/tmp/zelnora-locale-XXXXXX";
    const char* directory = ::mkdtemp(pattern);
    if (directory == nullptr) return false;
    const std::string command =
        "localedef -i de_DE -f UTF-8 " + std::string(directory) + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    ::setenv("LOCPATH", directory, 1);
    return use("de_DE.UTF-8");
  }

  std::string previousC_;
  std::locale previousCpp_;
  std::string name_;
  bool commaActive_ = false;
};

TEST_F(DeviceInfoMap, CoordinatesKeepTheDecimalPointUnderACommaLocale) {
  CommaDecimalLocale locale;
  if (!locale.active()) {
    GTEST_SKIP() << "no locale with a decimal comma is installed and localedef cannot make one";
  }
  location_.fix = platform::Coordinate{-23.5505199, 0.0};
  InfoMap map = ZAReportHelper::getDeviceInfoMap();
  EXPECT_EQ(map["lat"], "-23.550520");
  EXPECT_EQ(map["long"], "0.000000");
}

}  // namespace
}  // namespace zelnora_core
