// What a host hands the kit: calls from its own static initialisers, which may run before the
// kit's (this file's initialisers run first in the test binary: its object comes before the
// libraries); text that is not valid UTF-8, repaired where it enters so that stored records read
// back and report bodies are JSON; header fields that can never be sent, left out.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "platform/Bytes.h"
#include "platform/internal/Json.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "support/RecordingServer.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportHelper.h"

namespace zelnora_core {
namespace {

using namespace std::string_literals;
ZAManager* const managerSeenEarly = &data;

TEST(StaticInitialisation, HostInitialiserReachesTheManager) {
  EXPECT_EQ(managerSeenEarly, &ZAManager::sharedInstance());
}

constexpr const char* kFFFD = "\xEF\xBF\xBD";

TEST(HostTextRepair, EachMaximalInvalidSubsequenceBecomesOneReplacement) {
  const std::string r = kFFFD;
  const std::pair<std::string, std::string> rows[] = {
      {"\xC3\xA9\xF0\x9D\x84\x9E", "\xC3\xA9\xF0\x9D\x84\x9E"},  // valid: unchanged
      {"a\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",      // the Unicode standard's example
       "a" + r + r + r + "b" + r + "c" + r + r + "d"},
      {"\xED\xA0\x80\x65\xE2\x82", r + r + r + "e" + r},  // a surrogate; a sequence cut short
  };
  for (const auto& [input, expected] : rows) {
    EXPECT_EQ(platform::repairedUtf8(input), expected) << ::testing::PrintToString(input);
  }
}

class HostTextEntry : public ::testing::Test {
 protected:
  platform::testing::InMemoryUserDefaults defaults_;
  platform::testing::FakeCurrentDevice device_;  // hands its vendor id over in lower case
  platform::testing::ScopedServices services_{[this](platform::Services& services) {
    device_.vendorId = "0f8fad5b-d9cb-469f-a165-70867728950e";
    services.userDefaults = &defaults_;
    services.device = &device_;
  }};
  test_support::RecordingServer server_{[](const auto&, auto& response) { response.status = 200; }};
};

TEST_F(HostTextEntry, StoredUserAndReportCarryRepairedText) {
  ZAPreferencesUtil::saveUserData("user\xFF");  // read back for the report: absent if unreadable
  ZAPreferencesUtil::saveApiConfig({server_.url("/{key}"), server_.base(), server_.base()});
  ZAReportHelper::sendReport("open\xC3", "c\xED\xA0\x80", "t\x80");  // the body must still be JSON
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(10)));
  ASSERT_EQ(server_.received().size(), 1u);
  const auto body = platform::parseJson(server_.received()[0].body);
  ASSERT_TRUE(body.has_value()) << "report body is not JSON";
  const auto& event = (*body)["events"][0];
  EXPECT_EQ(event["userId"], "user"s + kFFFD);
  EXPECT_EQ(event["event"], "open"s + kFFFD);
  EXPECT_EQ(event["deviceId"], "0F8FAD5B-D9CB-469F-A165-70867728950E");
}

TEST_F(HostTextEntry, NewHeaderMapReplacesOldWithoutUnsendableFields) {
  ZAPreferencesUtil::saveCustomHeaders({{"X-Old", "1"}});
  ZAPreferencesUtil::saveCustomHeaders({{"X-Kept", "v\xFE"},
                                        {"X-Nul", "a\0b"s},
                                        {"X-Split", "a\r\nX-Injected: 1"},
                                        {"Bad Name", "v"}});

  const std::map<std::string, std::string> expected{{"X-Kept", "v"s + kFFFD}};
  EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(), expected);
}

}  // namespace
}  // namespace zelnora_core
