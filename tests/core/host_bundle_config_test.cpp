// Loading the service addresses from the host's property list, in XML and binary form, and the
// fatal errors that end the process when it is missing or incomplete.
#include <gtest/gtest.h>

#include "../../zelnora_core/src/HostBundleConfig.h"
#include "KitFixture.h"
#include "support/TempDirectory.h"
#include "zelnora_core/ZAManager.h"

namespace {

using kit_test::plistString;
using kit_test::xmlPlist;
using zelnora_core::ZAPIConfig;
using zelnora_core::ZAPreferencesUtil;

// A binary property list (bplist00) holding the three addresses below.
constexpr char kBinaryPlistHex[] =
    "62706c6973743030d30102030405065c4150495f424153455f55524c5b494e49545f434f4e4649475c5651585f"
    "424153455f55524c5f101868747470733a2f2f6170692e6578616d706c652e746573745f101b687474703a2f2f"
    "6578616d706c652e746573742f632f7b6b65797d5f101868747470733a2f2f7671782e6578616d706c652e7465"
    "7374080f1c2835506e0000000000000101000000000000000700000000000000000000000000000089";

std::string fromHex(std::string_view hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

class HostBundleConfig : public ::testing::Test {
 protected:
  void writePlist(std::string_view contents) {
    kit_test::writeFile(app_.dir.file("ZelnoraAdsConfig.plist"), contents);
  }
  kit_test::HostApp app_;
  std::unique_ptr<platform::testing::ScopedServices> guard_ = app_.install();
};

TEST_F(HostBundleConfig, ReadsBinaryPropertyListAndStoresTheRecord) {
  writePlist(fromHex(kBinaryPlistHex));
  ZAPIConfig expected{"http://example.test/c/{key}", "https://api.example.test",
                      "https://vqx.example.test"};
  EXPECT_EQ(zelnora_core::detail::loadFromBundle(), expected);
  EXPECT_EQ(ZAPreferencesUtil::getApiConfig(), expected);
}

TEST_F(HostBundleConfig, ReadsXmlAcceptsEmptyStringsAndIgnoresOtherKeys) {
  writePlist(xmlPlist({{"INIT_CONFIG", plistString("")},
                       {"API_BASE_URL", plistString(" not a url ")},
                       {"VQX_BASE_URL", plistString("v")},
                       {"OTHER", "<integer>3</integer>"}}));
  ZAPIConfig expected{"", " not a url ", "v"};
  EXPECT_EQ(zelnora_core::detail::loadFromBundle(), expected);
  EXPECT_EQ(ZAPreferencesUtil::getApiConfig(), expected);
}

TEST_F(HostBundleConfig, EveryLoadRereadsTheFileAndRewritesTheStoredCopy) {
  writePlist(xmlPlist({{"INIT_CONFIG", plistString("a")},
                       {"API_BASE_URL", plistString("b")},
                       {"VQX_BASE_URL", plistString("c")}}));
  zelnora_core::detail::loadFromBundle();
  writePlist(xmlPlist({{"INIT_CONFIG", plistString("a2")},
                       {"API_BASE_URL", plistString("b2")},
                       {"VQX_BASE_URL", plistString("c2")}}));
  zelnora_core::detail::loadFromBundle();
  EXPECT_EQ(ZAPreferencesUtil::getApiConfig(), (ZAPIConfig{"a2", "b2", "c2"}));
}

struct FatalCase {
  const char* name;
  std::optional<std::string> contents;  // absent: no file at all
  const char* message;
};

class HostBundleFatal : public ::testing::TestWithParam<FatalCase> {};

TEST_P(HostBundleFatal, EndsTheProcessWithItsMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const FatalCase& c = GetParam();
  kit_test::HostApp app;
  if (c.contents) kit_test::writeFile(app.dir.file("ZelnoraAdsConfig.plist"), *c.contents);
  auto guard = app.install();
  EXPECT_DEATH(zelnora_core::ZAManager::sharedInstance().initialize("key"),
               std::string("^Fatal error: ") + c.message + "\n$");
}

const std::string kInit = plistString("http://h/{key}");

INSTANTIATE_TEST_SUITE_P(
    Messages, HostBundleFatal,
    ::testing::Values(
        FatalCase{"NoFile", std::nullopt, "ZelnoraAdsConfig plist not found"},
        FatalCase{"EmptyFile", "", "ZelnoraAdsConfig plist not found"},
        FatalCase{"Garbage", "this is not a property list", "ZelnoraAdsConfig plist not found"},
        FatalCase{"TruncatedBinary", fromHex(kBinaryPlistHex).substr(0, 60),
                  "ZelnoraAdsConfig plist not found"},
        FatalCase{"RootIsArray",
                  "<?xml version=\"1.0\"?><plist "
                  "version=\"1.0\"><array><string>x</string></array></plist>",
                  "ZelnoraAdsConfig plist not found"},
        FatalCase{"InitConfigIsNumber",
                  xmlPlist({{"INIT_CONFIG", "<integer>5</integer>"},
                            {"API_BASE_URL", plistString("a")},
                            {"VQX_BASE_URL", plistString("v")}}),
                  "Missing plist key INIT_CONFIG"},
        FatalCase{"InitConfigIsData",
                  xmlPlist({{"INIT_CONFIG", "<data>aGVsbG8=</data>"},
                            {"API_BASE_URL", plistString("a")},
                            {"VQX_BASE_URL", plistString("v")}}),
                  "Missing plist key INIT_CONFIG"},
        FatalCase{"BothBasesMissing", xmlPlist({{"INIT_CONFIG", kInit}}),
                  "Missing plist key API_BASE_URL"},
        FatalCase{"GatewayMissing",
                  xmlPlist({{"INIT_CONFIG", kInit}, {"API_BASE_URL", plistString("a")}}),
                  "Missing plist key VQX_BASE_URL"},
        FatalCase{"AllMissing", xmlPlist({{"init_config", kInit}}),
                  "Missing plist key INIT_CONFIG"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(HostBundleLookup, FileOutsideTheMainBundleCountsAsAbsent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  kit_test::HostApp app;
  test_support::TempDirectory
      kitBundle;  // the kit's own folder holds a complete file; the host's has none
  kit_test::writeHostConfig(kitBundle.path(), "http://h/{key}", "a", "v");
  app.bundle.resources.clear();
  auto guard = app.install();
  EXPECT_DEATH(zelnora_core::detail::loadFromBundle(),
               "^Fatal error: ZelnoraAdsConfig plist not found\n$");
}

}  // namespace
