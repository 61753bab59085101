// JSON forms of the kit's records: the exact bytes written and what decoding accepts.
#include <gtest/gtest.h>

#include "platform/Bytes.h"
#include "zelnora_core/ZAConfig.h"
#include "zelnora_core/ZAPIConfig.h"
#include "zelnora_core/ZAUserDataCache.h"

namespace {

using platform::toBytes;
using platform::toString;
using zelnora_core::ZAConfig;
using zelnora_core::ZAPIConfig;
using zelnora_core::ZAUserDataCache;

struct ConfigDecodeCase {
  const char* json;
  std::optional<ZAConfig> expected;
};

class ConfigDecoding : public ::testing::TestWithParam<ConfigDecodeCase> {};

TEST_P(ConfigDecoding, FollowsTheShortKeysAndStrictTypes) {
  EXPECT_EQ(ZAConfig::fromJson(toBytes(GetParam().json)), GetParam().expected) << GetParam().json;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ConfigDecoding,
    ::testing::Values(
        ConfigDecodeCase{R"({"nt":"apns","nai":"app"})", ZAConfig{"apns", "app", {}, {}}},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","k":true,"zelnoraAdsAppId":"c"})",
                         ZAConfig{"a", "b", true, "c"}},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","k":false})", ZAConfig{"a", "b", false, {}}},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","k":null,"zelnoraAdsAppId":null})",
                         ZAConfig{"a", "b", {}, {}}},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","extra":[1,2],"nested":{"k":1}})",
                         ZAConfig{"a", "b", {}, {}}},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","nt":"last"})", ZAConfig{"last", "b", {}, {}}},
        ConfigDecodeCase{R"({"nt":"a"})", std::nullopt},
        ConfigDecodeCase{R"({"nai":"b"})", std::nullopt},
        ConfigDecodeCase{R"({"nt":"a","nai":2})", std::nullopt},
        ConfigDecodeCase{R"({"nt":null,"nai":"b"})", std::nullopt},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","k":1})", std::nullopt},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","k":"true"})", std::nullopt},
        ConfigDecodeCase{R"({"nt":"a","nai":"b","zelnoraAdsAppId":7})", std::nullopt},
        ConfigDecodeCase{R"({"vqxNotificationType":"a","vqxAppId":"b"})", std::nullopt},
        ConfigDecodeCase{R"([{"nt":"a","nai":"b"}])", std::nullopt},
        ConfigDecodeCase{R"("nt")", std::nullopt},
        ConfigDecodeCase{R"({"nt":"a","nai":"b"} x)", std::nullopt},
        ConfigDecodeCase{"{\"nt\":\"\xff\",\"nai\":\"b\"}", std::nullopt},
        ConfigDecodeCase{"", std::nullopt}));

TEST(ConfigEncoding, WritesShortKeysAndLeavesAbsentMembersOut) {
  EXPECT_EQ(toString(ZAConfig{"apns", "app", {}, {}}.toJson()), R"({"nt":"apns","nai":"app"})");
  EXPECT_EQ(toString(ZAConfig{"a", "b", false, {}}.toJson()), R"({"nt":"a","nai":"b","k":false})");
  EXPECT_EQ(toString(ZAConfig{"a/b", "c", true, "key"}.toJson()),
            R"({"nt":"a\/b","nai":"c","k":true,"zelnoraAdsAppId":"key"})");
}

TEST(ConfigEncoding, ExtraMembersAreNotKeptInTheStoredCopy) {
  auto decoded = ZAConfig::fromJson(toBytes(R"({"extra":1,"nai":"b","nt":"a"})"));
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(toString(decoded->toJson()), R"({"nt":"a","nai":"b"})");
}

TEST(ApiConfigJson, RoundTripsWithEscapedSlashesAndRequiresEveryKey) {
  ZAPIConfig config{"https://h/c/{key}", "https://api", ""};
  EXPECT_EQ(
      toString(config.toJson()),
      R"({"initConfigUrl":"https:\/\/h\/c\/{key}","apiBaseUrl":"https:\/\/api","vqxBaseUrl":""})");
  EXPECT_EQ(ZAPIConfig::fromJson(config.toJson()), config);
  EXPECT_FALSE(ZAPIConfig::fromJson(toBytes(R"({"initConfigUrl":"a","apiBaseUrl":"b"})")));
  EXPECT_FALSE(
      ZAPIConfig::fromJson(toBytes(R"({"initConfigUrl":"a","apiBaseUrl":"b","vqxBaseUrl":1})")));
}

TEST(UserDataJson, AdvertisingIdIsOptionalAndNeverNull) {
  EXPECT_EQ(toString(ZAUserDataCache{"u", {}}.toJson()), R"({"userId":"u"})");
  EXPECT_EQ(toString(ZAUserDataCache{"u\n\"x\"", "ID"}.toJson()),
            R"({"userId":"u\n\"x\"","advertisingId":"ID"})");
  EXPECT_EQ(ZAUserDataCache::fromJson(toBytes(R"({"userId":"u","advertisingId":null})")),
            (ZAUserDataCache{"u", {}}));
  EXPECT_FALSE(ZAUserDataCache::fromJson(toBytes(R"({"advertisingId":"x"})")));
  EXPECT_FALSE(ZAUserDataCache::fromJson(toBytes(R"({"userId":"u","advertisingId":5})")));
}

}  // namespace
