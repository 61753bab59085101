// The lines zelnora-host prints itself, and the host bundles it writes.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "HostBundle.h"
#include "HostFormat.h"
#include "platform/PropertyListReader.h"
#include "support/TempDirectory.h"

namespace zelnora_host {
namespace {

using platform::PropertyValue;

TEST(HostFormatTest, StateLineNamesTheThreeFlags) {
  EXPECT_EQ(stateLine(true, false, false),
            "host: state initialized=true debug=false disabled=false");
  EXPECT_EQ(stateLine(false, true, true), "host: state initialized=false debug=true disabled=true");
}

TEST(HostFormatTest, PrefLineShowsTheStoredTypeAndValue) {
  struct Case {
    PropertyValue value;
    std::string line;
  };
  const Case cases[] = {
      {PropertyValue(platform::toBytes(R"({"nt":"a"})")), R"(host: pref k data {"nt":"a"})"},
      {PropertyValue(std::string("text with spaces")), "host: pref k string text with spaces"},
      {PropertyValue(std::string()), "host: pref k string "},
      {platform::makeStringDictionary({{"X-A", "1"}, {"b", "x/y"}}),
       R"(host: pref k dictionary {"X-A":"1","b":"x\/y"})"},
      {PropertyValue(std::int64_t{42}), "host: pref k other 42"},
      {PropertyValue(true), "host: pref k other true"},
      {PropertyValue(platform::PropertyArray{PropertyValue("a"), PropertyValue(std::int64_t{1})}),
       R"(host: pref k other ["a",1])"},
  };
  for (const auto& c : cases) EXPECT_EQ(prefLine("k", c.value), c.line);
}

TEST(HostFormatTest, DataAndStringOfTheSameTextAreToldApart) {
  EXPECT_NE(prefLine("k", PropertyValue(platform::toBytes("v"))),
            prefLine("k", PropertyValue(std::string("v"))));
}

TEST(HostFormatTest, StringMapJsonEscapesAsTheKitWritesJson) {
  EXPECT_EQ(stringMapJson({}), "{}");
  EXPECT_EQ(stringMapJson({{"b", "2"}, {"a", "q\"uote\n/"}}), R"({"a":"q\"uote\n\/","b":"2"})");
}

TEST(HostFormatTest, ResponseAndErrorLines) {
  EXPECT_EQ(responseLine(200, platform::toBytes(R"({"status":"ok"})")),
            R"(host: response status=200 body={"status":"ok"})");
  EXPECT_EQ(responseLine(204, std::nullopt), "host: response status=204 body=");
  platform::Error transport{platform::kURLErrorDomain, platform::kURLErrorCannotConnectToHost,
                            "Could not connect to the server."};
  EXPECT_EQ(errorLine(transport),
            "host: error domain=NSURLErrorDomain code=-1004 Could not connect to the server.");
  platform::Error status{"StatusCode", 404, std::nullopt};
  EXPECT_EQ(errorLine(status),
            "host: error domain=StatusCode code=404 The operation couldn\u2019t be completed. "
            "(StatusCode error 404.)");
}

TEST(HostBundleTest, WrittenBundleReadsBackWithEveryKey) {
  HostBundleSettings settings = settingsForService("http://127.0.0.1:8080");
  settings.bundleIdentifier = "com.example.a&b";
  settings.shortVersion = "2.<3>";
  EXPECT_EQ(settings.initConfigUrl, "http://127.0.0.1:8080/config/{key}");

  std::string config = hostConfigPlistXml(settings);
  auto parsed = platform::parsePropertyList(config);
  ASSERT_TRUE(parsed);
  ASSERT_TRUE(parsed->dictionary());
  const auto& dictionary = *parsed->dictionary();
  EXPECT_EQ(dictionary.at("INIT_CONFIG"), PropertyValue("http://127.0.0.1:8080/config/{key}"));
  EXPECT_EQ(dictionary.at("API_BASE_URL"), PropertyValue("http://127.0.0.1:8080"));
  EXPECT_EQ(dictionary.at("VQX_BASE_URL"), PropertyValue("http://127.0.0.1:8080"));

  auto info = platform::parsePropertyList(infoPlistXml(settings));
  ASSERT_TRUE(info && info->dictionary());
  EXPECT_EQ(info->dictionary()->at("CFBundleIdentifier"), PropertyValue("com.example.a&b"));
  EXPECT_EQ(info->dictionary()->at("CFBundleShortVersionString"), PropertyValue("2.<3>"));
}

TEST(HostBundleTest, WritesBothFilesOrReportsFailure) {
  test_support::TempDirectory directory;
  EXPECT_TRUE(writeHostBundle(directory.path(), settingsForService("http://127.0.0.1:1")));
  EXPECT_TRUE(std::filesystem::exists(directory.file("ZelnoraAdsConfig.plist")));
  EXPECT_TRUE(std::filesystem::exists(directory.file("Info.plist")));
  EXPECT_FALSE(writeHostBundle(directory.file("missing"), HostBundleSettings{}));
}

}  // namespace
}  // namespace zelnora_host
