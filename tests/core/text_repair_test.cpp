// Text the host hands the kit that is not valid UTF-8 is repaired where it enters, so that stored
// records read back and report bodies are JSON; header fields that can never be sent are left out.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "platform/Bytes.h"
#include "platform/Json.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/FaultInjectingSession.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportHelper.h"

namespace zelnora_core {
namespace {

using namespace std::string_literals;
constexpr const char* kFFFD = "\xEF\xBF\xBD";

std::string replacements(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += kFFFD;
  return text;
}

TEST(HostTextRepair, EachMaximalInvalidSubsequenceBecomesOneReplacement) {
  const std::pair<std::string, std::string> rows[] = {
      {"plain \xC3\xA9 \xF0\x9D\x84\x9E", "plain \xC3\xA9 \xF0\x9D\x84\x9E"},
      {"a\xF1\x80\x80\xE1\x80\xC2"
       "b\x80"
       "c\x80\xBF"
       "d",  // the Unicode standard's example
       "a" + replacements(3) + "b" + kFFFD + "c" + replacements(2) + "d"},
      {"\xC0\xAF", replacements(2)},          // overlong
      {"\xED\xA0\x80", replacements(3)},      // surrogate
      {"\xF4\x90\x80\x80", replacements(4)},  // above U+10FFFF
      {"end\xE2\x82", "end"s + kFFFD},        // cut short at the end
      {"\xF0\x9F\x98"
       "x",
       kFFFD + "x"s},  // cut short before ASCII
  };
  for (const auto& [input, expected] : rows) {
    EXPECT_EQ(platform::repairedUtf8(input), expected) << ::testing::PrintToString(input);
  }
}

class HostTextEntry : public ::testing::Test {
 protected:
  platform::testing::InMemoryUserDefaults defaults_;
  platform::testing::FakeAdvertising advertising_;
  platform::testing::FaultInjectingSession session_{*platform::defaultServices().urlSession};
  platform::testing::ScopedServices services_{[this](platform::Services& services) {
    services.userDefaults = &defaults_;
    services.advertising = &advertising_;
    services.urlSession = &session_;
  }};
};

TEST_F(HostTextEntry, StoredUserAndReportCarryRepairedText) {
  ZAPreferencesUtil::saveUserData("user\xFF");
  ASSERT_TRUE(ZAPreferencesUtil::getUserData().has_value());
  EXPECT_EQ(ZAPreferencesUtil::getUserData()->userId, "user"s + kFFFD);

  ZAPreferencesUtil::saveApiConfig({"http://127.0.0.1:9/{key}", "http://127.0.0.1:9", "http://x"});
  session_.failWith(platform::Error{platform::kURLErrorDomain, platform::kURLErrorCancelled, {}});
  ZAReportHelper::sendReport("open\xC3", "c\xED\xA0\x80", "t\x80");
  ASSERT_TRUE(session_.waitUntilIdle(std::chrono::seconds(10)));
  ASSERT_EQ(session_.requests().size(), 1u);
  const auto body =
      platform::parseJson(session_.requests()[0].httpBody.value_or(platform::Bytes{}));
  ASSERT_TRUE(body.has_value()) << "report body is not JSON";
  const auto& event = (*body)["events"][0];
  EXPECT_EQ(event["userId"], "user"s + kFFFD);
  EXPECT_EQ(event["event"], "open"s + kFFFD);
  EXPECT_EQ(event["campaignUuid"], "c" + replacements(3));
  EXPECT_EQ(event["t"], "t"s + kFFFD);
}

TEST_F(HostTextEntry, NewHeaderMapReplacesOldWithoutUnsendableFields) {
  ZAPreferencesUtil::saveCustomHeaders({{"X-Old", "1"}});
  ZAPreferencesUtil::saveCustomHeaders({{"X-Kept", "v\xFE"},
                                        {"X-Nul", "a\0b"s},
                                        {"X-Split", "a\r\nX-Injected: 1"},
                                        {"Bad Name", "v"},
                                        {"N\xFF", "v"},
                                        {"", "v"}});
  const std::map<std::string, std::string> expected{{"X-Kept", "v"s + kFFFD}};
  EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(), expected);
}

}  // namespace
}  // namespace zelnora_core
