// The shared preferences suite: the suite-name rule, the stored forms, and reads that fail quietly.
#include <gtest/gtest.h>

#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/src/PreferencesKeys.h"

namespace {

using platform::PropertyValue;
using platform::toBytes;
using zelnora_core::ZAConfig;
using zelnora_core::ZAPreferencesUtil;

// (That the host and its notification service extension share one suite is checked end to end.)
TEST(SuiteName, FallsBackForAHostWithoutIdentifierAndMatchesTheSuffixExactly) {
  EXPECT_EQ(zelnora_core::detail::suiteNameFor(std::nullopt), "group.com.zelnora.ads.za");
  EXPECT_EQ(zelnora_core::detail::suiteNameFor("a.zelnoraadsnotificationservice"),
            "group.a.zelnoraadsnotificationservice.za");
  // One pass: removing the inner suffix does not make a new one to remove.
  EXPECT_EQ(zelnora_core::detail::suiteNameFor(
                "a.Zelnora.ZelnoraAdsNotificationServiceAdsNotificationService"),
            "group.a.ZelnoraAdsNotificationService.za");
}

class Preferences : public ::testing::Test {
 protected:
  std::shared_ptr<platform::UserDefaultsSuite> suite() {
    return store_.suite(ZAPreferencesUtil::appGroupSuiteName());
  }
  platform::testing::FakeConsole console_;
  platform::testing::InMemoryUserDefaults store_;
  platform::testing::ScopedServices guard_{[this](platform::Services& s) {
    s.console = &console_;
    s.userDefaults = &store_;
  }};
};

TEST_F(Preferences, ValuesOfTheWrongShapeReadAsAbsentAndStayInPlace) {
  const std::pair<const char*, PropertyValue> bad[] = {
      {"zelnora_ads_prefs", std::string(R"({"nt":"a","nai":"b"})")},  // text, not bytes
      {"zelnora_ads_api_prefs", toBytes(R"({"initConfigUrl":"a","apiBaseUrl":"b"})")},
      {"ZA_USER_DATA", platform::PropertyDictionary{{"userId", "u"}}},
      {"zelnora_ads_custom_headers", platform::PropertyDictionary{{"X", std::int64_t{2}}}},
      {"zelnora_ads_ad_id", toBytes("bytes")},
  };
  for (const auto& [key, value] : bad) {
    suite()->set(key, value);
    EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig() || ZAPreferencesUtil::getApiConfig() ||
                 ZAPreferencesUtil::getUserData() || ZAPreferencesUtil::getCustomHeaders() ||
                 ZAPreferencesUtil::getAdId())
        << key;
    EXPECT_EQ(suite()->object(key), value) << key;
    suite()->remove(key);
  }
  suite()->set("zelnora_ads_ad_id", std::string("AD-ID"));
  EXPECT_EQ(ZAPreferencesUtil::getAdId(), "AD-ID");
  EXPECT_TRUE(console_.pieces().empty());
}

// Another process may rewrite a record at any time: every read decodes what is stored now, by the
// short keys and with strict types.
TEST_F(Preferences, EveryReadGivesTheRecordStoredNow) {
  const std::pair<const char*, std::optional<ZAConfig>> steps[] = {
      {R"({"nt":"a1","nai":"b1"})", ZAConfig{"a1", "b1", {}, {}}},
      {R"({"nt":"a2","nai":"b2"})", ZAConfig{"a2", "b2", {}, {}}},  // same length
      {R"({"nt":"a3"})", std::nullopt},
      {R"({"nt":"a1","nai":"b1"})", ZAConfig{"a1", "b1", {}, {}}},  // back to an earlier one
      {R"({"nt":"a","nai":"b","k":true,"zelnoraAdsAppId":"c"})", ZAConfig{"a", "b", true, "c"}},
      {R"({"nt":"a","nai":"b","k":null,"zelnoraAdsAppId":null})", ZAConfig{"a", "b", {}, {}}},
      {R"({"nt":"a","nai":"b","extra":[1],"nt":"last"})", ZAConfig{"last", "b", {}, {}}},
      {R"({"nt":null,"nai":"b"})", std::nullopt},
      {R"({"nt":"a","nai":"b","k":"true"})", std::nullopt},
      {R"({"nt":"a","nai":"b","zelnoraAdsAppId":7})", std::nullopt},
      {R"({"vqxNotificationType":"a","vqxAppId":"b"})", std::nullopt},
      {"{\"nt\":\"\xff\",\"nai\":\"b\"}", std::nullopt},
  };
  for (const auto& [json, reads] : steps) {
    suite()->set("zelnora_ads_prefs", toBytes(json));
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(), reads) << json;
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(), reads) << json << ", read again";
  }
}

// The platform may refuse the suite (no container): every operation is then a silent no-op and
// every read absent, with nothing remembered in memory.
TEST(UnopenableSuite, EveryOperationIsASilentNoOpWithAbsentReads) {
  struct RefusingStore : platform::UserDefaultsStore {
    std::shared_ptr<platform::UserDefaultsSuite> suite(std::string_view /*name*/) override {
      return nullptr;
    }
  } store;
  platform::testing::FakeConsole console;
  platform::testing::ScopedServices guard{[&](platform::Services& s) {
    s.console = &console;
    s.userDefaults = &store;
  }};
  ZAPreferencesUtil::saveConfig(ZAConfig{"a", "b", true, "c"});
  ZAPreferencesUtil::saveApiConfig(zelnora_core::ZAPIConfig{"http://c", "http://a", "http://v"});
  ZAPreferencesUtil::saveUserData("u");
  ZAPreferencesUtil::saveCustomHeaders({{"X", "1"}});
  EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig() || ZAPreferencesUtil::getApiConfig() ||
               ZAPreferencesUtil::getUserData() || ZAPreferencesUtil::getCustomHeaders() ||
               ZAPreferencesUtil::getAdId());
  ZAPreferencesUtil::deleteConfig();
  ZAPreferencesUtil::removeCustomHeaders();
  EXPECT_EQ(console.text(), "Error getting adId\n") << "only the device's own line, nothing more";
}

}  // namespace
