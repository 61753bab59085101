// The host's property list: the one failure that ends the process, with its exact message.
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "support/TempDirectory.h"
#include "zelnora_core/ZAManager.h"

namespace {

std::string plist(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
         "</dict></plist>\n";
}
std::string entry(const char* key, const char* value = "<string>http://h/{key}</string>") {
  return std::string("<key>") + key + "</key>" + value;
}

struct FatalCase {
  const char* name;
  std::optional<std::string> file;  // absent: no file in the bundle
  const char* message;
};

class HostPropertyList : public ::testing::TestWithParam<FatalCase> {};

TEST_P(HostPropertyList, MissingOrIncompleteEndsTheProcessWithItsMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  test_support::TempDirectory bundle;
  platform::testing::FakeMainBundle mainBundle;
  if (GetParam().file) {
    mainBundle.resources["ZelnoraAdsConfig.plist"] =
        bundle.write("ZelnoraAdsConfig.plist", *GetParam().file);
  }
  platform::testing::InMemoryUserDefaults store;
  platform::testing::ScopedServices guard([&](platform::Services& s) {
    s.mainBundle = &mainBundle;
    s.userDefaults = &store;
  });
  EXPECT_DEATH(zelnora_core::ZAManager::sharedInstance().initialize("key"),
               std::string("^Fatal error: ") + GetParam().message + "\n$");
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, HostPropertyList, ::testing::Values(
    FatalCase{"NoFile", std::nullopt, "ZelnoraAdsConfig plist not found"},
    FatalCase{"NotAPropertyList", "not a property list", "ZelnoraAdsConfig plist not found"},
    FatalCase{"EveryKeyMissingNamesTheFirst", plist(entry("init_config")),
              "Missing plist key INIT_CONFIG"},
    FatalCase{"ApiBaseBeforeGateway", plist(entry("INIT_CONFIG")),
              "Missing plist key API_BASE_URL"},
    FatalCase{"GatewayMissing", plist(entry("INIT_CONFIG") + entry("API_BASE_URL")),
              "Missing plist key VQX_BASE_URL"},
    FatalCase{"NumberIsNoString", plist(entry("INIT_CONFIG", "<integer>5</integer>") +
              entry("API_BASE_URL") + entry("VQX_BASE_URL")), "Missing plist key INIT_CONFIG"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
