// The shared preferences suite: keys, value types, the suite-name rule and silent failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../../zelnora_core/src/PreferencesKeys.h"
#include "KitFixture.h"

namespace {

using platform::PropertyValue;
using platform::toBytes;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zelnora_core::ZAPreferencesUtil;
using Headers = std::map<std::string, std::string>;

TEST(SuiteName, HostAndExtensionShareOneSuite) {
  using zelnora_core::detail::suiteNameFor;
  struct Case {
    std::optional<std::string> identifier;
    std::string expected;
  } cases[] = {
      {"com.example.app", "group.com.example.app.za"},
      {"com.example.app.ZelnoraAdsNotificationService", "group.com.example.app.za"},
      {"a.ZelnoraAdsNotificationService.b.ZelnoraAdsNotificationService", "group.a.b.za"},
      {"com.example.app.zelnoraadsnotificationservice",
       "group.com.example.app.zelnoraadsnotificationservice.za"},
      {"", "group..za"},
      {std::nullopt, "group.com.zelnora.ads.za"},
  };
  for (const auto& c : cases) EXPECT_EQ(suiteNameFor(c.identifier), c.expected);
}

TEST(SuiteName, ComputedFromTheMainBundleOnFirstUse) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp extension("com.example.host.ZelnoraAdsNotificationService");
    auto guard = extension.install();
    ZAPreferencesUtil::deleteConfig();
    EXPECT_THAT(extension.store.openedSuiteNames(), ElementsAre("group.com.example.host.za"));
  });
}

class Preferences : public ::testing::Test {
 protected:
  std::shared_ptr<platform::UserDefaultsSuite> suite() {
    return app_.store.suite(ZAPreferencesUtil::appGroupSuiteName());
  }
  kit_test::HostApp app_;
  std::unique_ptr<platform::testing::ScopedServices> guard_ = app_.install();
};

TEST_F(Preferences, ConfigRoundTripsAsJsonBytesUnderItsKey) {
  zelnora_core::ZAConfig config{"nt", "nai", true, "chan"};
  ZAPreferencesUtil::saveConfig(config);
  EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(), config);
  EXPECT_EQ(suite()->object("zelnora_ads_prefs"),
            PropertyValue(toBytes(R"({"nt":"nt","nai":"nai","k":true,"zelnoraAdsAppId":"chan"})")));
  ZAPreferencesUtil::deleteConfig();
  EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig().has_value());
  EXPECT_FALSE(suite()->object("zelnora_ads_prefs").has_value());
}

TEST_F(Preferences, UnreadableRecordsReadAsAbsentAndStayInPlace) {
  const std::pair<const char*, PropertyValue> bad[] = {
      {"zelnora_ads_prefs", toBytes("not json")},
      {"zelnora_ads_prefs", toBytes(R"({"nt":"a"})")},
      {"zelnora_ads_prefs", std::string(R"({"nt":"a","nai":"b"})")},  // text, not bytes
      {"zelnora_ads_api_prefs", toBytes(R"({"initConfigUrl":"a"})")},
      {"zelnora_ads_api_prefs", std::int64_t{7}},
      {"ZA_USER_DATA", toBytes("{}")},
      {"ZA_USER_DATA", platform::PropertyDictionary{{"userId", "u"}}},
  };
  for (const auto& [key, value] : bad) {
    suite()->set(key, value);
    EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig().has_value());
    EXPECT_FALSE(ZAPreferencesUtil::getApiConfig().has_value());
    EXPECT_FALSE(ZAPreferencesUtil::getUserData().has_value());
    EXPECT_EQ(suite()->object(key), value) << key;
  }
  EXPECT_THAT(app_.console.pieces(), IsEmpty());
}

// Stored records are decoded again only when their bytes change: every read must still give what
// is stored now, whoever wrote it and whatever was read before.
TEST_F(Preferences, EveryReadGivesTheRecordStoredNow) {
  using zelnora_core::ZAConfig;
  const struct {
    const char* json;  // written straight into the suite, as the extension would
    std::optional<ZAConfig> reads;
  } steps[] = {
      {R"({"nt":"a1","nai":"b1"})", ZAConfig{"a1", "b1", {}, {}}},
      {R"({"nt":"a2","nai":"b2"})", ZAConfig{"a2", "b2", {}, {}}},  // same length
      {R"({"nt":"a3"})", std::nullopt},
      {R"({"nt":"a1","nai":"b1"})", ZAConfig{"a1", "b1", {}, {}}},  // back to an earlier record
      {R"({"nt":"a1","nai":"b1","k":true})", ZAConfig{"a1", "b1", true, {}}},
      {"not json", std::nullopt},
      {R"({"nt":"a1","nai":"b1","k":true})", ZAConfig{"a1", "b1", true, {}}},
  };
  for (const auto& step : steps) {
    suite()->set("zelnora_ads_prefs", toBytes(step.json));
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(), step.reads) << step.json;
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(), step.reads) << step.json << ", read again";
  }
  ZAPreferencesUtil::saveConfig(ZAConfig{"saved", "through the kit", false, "chan"});
  EXPECT_EQ(ZAPreferencesUtil::getSdkConfig(),
            (ZAConfig{"saved", "through the kit", false, "chan"}));
}

TEST_F(Preferences, UserDataWithTrackingOffHasOnlyTheUserIdAndSaysSo) {
  ZAPreferencesUtil::saveUserData("user/1");
  EXPECT_EQ(suite()->object("ZA_USER_DATA"), PropertyValue(toBytes(R"({"userId":"user\/1"})")));
  EXPECT_THAT(app_.console.pieces(), ElementsAre("Error getting adId\n"));
}

TEST_F(Preferences, UserDataIsRebuiltWholeOnEveryCall) {
  app_.advertising.trackingEnabled = true;
  app_.advertising.identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  ZAPreferencesUtil::saveUserData("u1");
  EXPECT_EQ(ZAPreferencesUtil::getUserData(),
            (zelnora_core::ZAUserDataCache{"u1", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}));
  app_.advertising.trackingEnabled = false;
  ZAPreferencesUtil::saveUserData("u2");
  EXPECT_EQ(ZAPreferencesUtil::getUserData(), (zelnora_core::ZAUserDataCache{"u2", {}}));
  EXPECT_THAT(app_.console.lines(), ElementsAre("Error getting adId"));
}

TEST_F(Preferences, CustomHeadersAreADictionaryNotJson) {
  ZAPreferencesUtil::saveCustomHeaders({{"X-A", "1"}, {"X-B", "two words"}});
  auto stored = suite()->object("zelnora_ads_custom_headers");
  ASSERT_TRUE(stored.has_value());
  ASSERT_NE(stored->dictionary(), nullptr);
  EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(), (Headers{{"X-A", "1"}, {"X-B", "two words"}}));

  ZAPreferencesUtil::saveCustomHeaders({});
  EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(), Headers{});
  ZAPreferencesUtil::removeCustomHeaders();
  EXPECT_FALSE(ZAPreferencesUtil::getCustomHeaders().has_value());
}

TEST_F(Preferences, HeadersOfTheWrongShapeReadAsAbsent) {
  const PropertyValue wrong[] = {
      platform::PropertyDictionary{{"X-A", "1"}, {"X-B", std::int64_t{2}}},
      std::string(R"({"X-A":"1"})"),
      toBytes(R"({"X-A":"1"})"),
      platform::PropertyArray{"X-A"},
  };
  for (const auto& value : wrong) {
    suite()->set("zelnora_ads_custom_headers", value);
    EXPECT_FALSE(ZAPreferencesUtil::getCustomHeaders().has_value());
    EXPECT_EQ(suite()->object("zelnora_ads_custom_headers"), value);
  }
}

TEST_F(Preferences, AdIdIsReadOnlyWhenSomeoneElseWroteText) {
  EXPECT_FALSE(ZAPreferencesUtil::getAdId().has_value());
  suite()->set("zelnora_ads_ad_id", toBytes("bytes"));
  EXPECT_FALSE(ZAPreferencesUtil::getAdId().has_value());
  suite()->set("zelnora_ads_ad_id", std::string("AD-ID"));
  EXPECT_EQ(ZAPreferencesUtil::getAdId(), "AD-ID");
}

TEST(PreferencesRefused, SuiteThatCannotBeOpenedMakesEveryOperationANoOp) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp app;
    app.store.refuse("group.com.example.host.za");
    auto guard = app.install();
    ZAPreferencesUtil::saveConfig({"a", "b", {}, {}});
    ZAPreferencesUtil::saveApiConfig({"a", "b", "c"});
    ZAPreferencesUtil::saveCustomHeaders({{"a", "b"}});
    app.advertising.trackingEnabled = true;
    ZAPreferencesUtil::saveUserData("u");
    ZAPreferencesUtil::deleteConfig();
    ZAPreferencesUtil::removeCustomHeaders();
    EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig());
    EXPECT_FALSE(ZAPreferencesUtil::getApiConfig());
    EXPECT_FALSE(ZAPreferencesUtil::getUserData());
    EXPECT_FALSE(ZAPreferencesUtil::getCustomHeaders());
    EXPECT_FALSE(ZAPreferencesUtil::getAdId());
    EXPECT_THAT(app.console.pieces(), IsEmpty());
  });
}

}  // namespace
