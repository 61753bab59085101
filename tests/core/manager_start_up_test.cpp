// Start-up of the kit against a real loopback configuration endpoint. Each scenario runs in a fresh
// process, as a new launch of the host app, because the manager's state lives for the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KitFixture.h"
#include "support/LoopbackSocket.h"
#include "support/ResettingServer.h"
#include "zelnora_core/ZAManager.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zelnora_core::ZAConfig;
using zelnora_core::ZAManager;
using zelnora_core::ZAPreferencesUtil;

enum class Stored { none, kept, removed, replaced };

struct AnswerCase {
  std::string name;
  int status;
  std::string body;
  bool preStored;                  // a configuration without kill is stored before start-up
  std::vector<std::string> lines;  // what the kit prints
  Stored afterwards;
  bool callback;
};

std::string caseName(const ::testing::TestParamInfo<AnswerCase>& info) { return info.param.name; }

class ConfigurationAnswer : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(ConfigurationAnswer, LeavesTheExpectedLinesStoreAndFlags) {
  const AnswerCase& c = GetParam();
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    auto& app = host.app;
    server.answer("app-key", {c.status, c.body});
    if (c.preStored) ZAPreferencesUtil::saveConfig(kit_test::storedConfig("old-nt", "old-nai"));

    int callbacks = 0;
    ZAManager::sharedInstance().initialize("app-key", false, [&] { ++callbacks; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());

    EXPECT_EQ(server.requests(), 1);
    EXPECT_EQ(app.console.lines(), c.lines);
    EXPECT_EQ(callbacks, c.callback ? 1 : 0);
    auto stored = ZAPreferencesUtil::getSdkConfig();
    switch (c.afterwards) {
      case Stored::none:
      case Stored::removed: EXPECT_FALSE(stored.has_value()); break;
      case Stored::kept:
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(stored->vqxAppId, "old-nai");
        break;
      case Stored::replaced:
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(stored->vqxAppId, "fresh-nai");
        EXPECT_EQ(stored->zelnoraAdsAppId, "app-key");
        break;
    }
    // Success or a stored configuration makes the kit usable; failures change nothing else.
    EXPECT_EQ(ZAManager::sharedInstance().isInitialized(), c.callback || c.preStored);
    EXPECT_FALSE(ZAManager::sharedInstance().isDisabled());
  });
}

const std::string kFresh = R"({"nt":"fresh-nt","nai":"fresh-nai"})";

INSTANTIATE_TEST_SUITE_P(
    StatusAndBody, ConfigurationAnswer,
    ::testing::Values(
        AnswerCase{
            "Ok200", 200, kFresh, false, {"SDK initialized successfully"}, Stored::replaced, true},
        AnswerCase{
            "Ok299", 299, kFresh, false, {"SDK initialized successfully"}, Stored::replaced, true},
        AnswerCase{"OkReplacesStored",
                   200,
                   kFresh,
                   true,
                   {"SDK initialized successfully"},
                   Stored::replaced,
                   true},
        AnswerCase{"OkOverwritesChannel",
                   200,
                   R"({"nt":"fresh-nt","nai":"fresh-nai","zelnoraAdsAppId":"other"})",
                   false,
                   {"SDK initialized successfully"},
                   Stored::replaced,
                   true},
        AnswerCase{"Redirection300",
                   300,
                   kFresh,
                   true,
                   {"Error getting configuration"},
                   Stored::removed,
                   false},
        AnswerCase{"BadRequest400",
                   400,
                   kFresh,
                   true,
                   {"Error getting configuration"},
                   Stored::removed,
                   false},
        AnswerCase{
            "Unauthorized401", 401, "{}", true, {"Application key invalid"}, Stored::kept, false},
        AnswerCase{"Forbidden403",
                   403,
                   "{}",
                   true,
                   {"Error getting configuration"},
                   Stored::removed,
                   false},
        AnswerCase{"ServerError500",
                   500,
                   R"({"error":"boom"})",
                   true,
                   {"Error getting configuration"},
                   Stored::removed,
                   false},
        AnswerCase{"NotJson",
                   200,
                   "<html>oops</html>",
                   true,
                   {"Error getting configuration"},
                   Stored::kept,
                   false},
        AnswerCase{
            "EmptyBody", 200, "", true, {"Error getting configuration"}, Stored::kept, false},
        AnswerCase{"MissingNai",
                   200,
                   R"({"nt":"x"})",
                   true,
                   {"Error getting configuration"},
                   Stored::kept,
                   false},
        AnswerCase{"KillAsNumber",
                   200,
                   R"({"nt":"x","nai":"y","k":1})",
                   true,
                   {"Error getting configuration"},
                   Stored::kept,
                   false},
        AnswerCase{"FieldNamesAsKeys",
                   200,
                   R"({"vqxNotificationType":"x","vqxAppId":"y"})",
                   false,
                   {"Error getting configuration"},
                   Stored::none,
                   false},
        AnswerCase{"DeeplyNested",
                   200,
                   std::string(100000, '[') + std::string(100000, ']'),
                   true,
                   {"Error getting configuration"},
                   Stored::kept,
                   false},
        AnswerCase{"TrailingGarbage",
                   200,
                   kFresh + "}",
                   true,
                   {"Error getting configuration"},
                   Stored::kept,
                   false}),
    caseName);

TEST(StartUp, ConnectionRefusedChangesNothing) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp app;
    app.writeConfig("http://127.0.0.1:" + std::to_string(test_support::refusedPort()) +
                    "/config/{key}");
    auto guard = app.install();
    bool called = false;
    ZAManager::sharedInstance().initialize("k", std::nullopt, [&] { called = true; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_THAT(app.console.lines(), IsEmpty());
    EXPECT_FALSE(called);
    EXPECT_FALSE(ZAManager::sharedInstance().isInitialized());
  });
}

TEST(StartUp, ResetWithoutAnswerChangesNothing) {
  KIT_IN_FRESH_PROCESS({
    test_support::ResettingServer server;
    kit_test::HostApp app;
    app.writeConfig("http://127.0.0.1:" + std::to_string(server.port()) + "/config/{key}");
    auto guard = app.install();
    ZAPreferencesUtil::saveConfig(kit_test::storedConfig("nt", "nai"));
    ZAManager::sharedInstance().initialize("k");
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_THAT(app.console.lines(), IsEmpty());
    EXPECT_TRUE(ZAPreferencesUtil::getSdkConfig().has_value());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
  });
}

TEST(StartUp, RequestCarriesOnlyAcceptAndTheKeyFilledIntoEveryPlaceholder) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfigServer server;
    server.answer("abc-abc", {200, R"({"nt":"a","nai":"b"})"});
    kit_test::HostApp app;
    app.writeConfig(server.base() + "/config/{key}-{key}");
    auto guard = app.install();
    ZAManager::sharedInstance().initialize("abc");
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_EQ(server.lastPath(), "/config/abc-abc");
    EXPECT_EQ(server.lastAccept(), "application/json");
    EXPECT_THAT(app.console.lines(), ElementsAre("SDK initialized successfully"));
  });
}

TEST(StartUp, TemplateWithoutPlaceholderIsUsedUnchanged) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfigServer server;
    server.answer("fixed", {200, R"({"nt":"a","nai":"b"})"});
    kit_test::HostApp app;
    app.writeConfig(server.base() + "/config/fixed");
    auto guard = app.install();
    ZAManager::sharedInstance().initialize("ignored-key");
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_EQ(server.lastPath(), "/config/fixed");
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig()->zelnoraAdsAppId, "ignored-key");
  });
}

TEST(StartUp, KeyThatBreaksTheUrlDisablesWithoutSending) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    auto& app = host.app;
    bool called = false;
    ZAManager::sharedInstance().initialize("has space", std::nullopt, [&] { called = true; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_THAT(app.console.lines(), ElementsAre("Zelnora Ads sdk disabled"));
    EXPECT_EQ(server.requests(), 0);
    EXPECT_FALSE(called);
    EXPECT_FALSE(ZAManager::sharedInstance().isDisabled());
  });
}

TEST(StartUp, StoredKillSwitchDisablesAndSendsNothing) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    auto& app = host.app;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    ZAPreferencesUtil::saveConfig(kit_test::storedConfig("nt", "nai", true));
    bool called = false;
    ZAManager::sharedInstance().initialize("k", false, [&] { called = true; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_THAT(app.console.lines(), ElementsAre("Zelnora Ads sdk disabled"));
    EXPECT_EQ(server.requests(), 0);
    EXPECT_FALSE(called);
    EXPECT_TRUE(ZAManager::sharedInstance().isDisabled());
    EXPECT_FALSE(ZAManager::sharedInstance().isInitialized());
    // A disabled kit is not initialised, so these answer with the same line.
    ZAManager::sharedInstance().setUserId("u");
    ZAManager::sharedInstance().requestPermission();
    EXPECT_THAT(app.console.lines(),
                ElementsAre("Zelnora Ads sdk disabled", "Sdk was not initialized",
                            "Sdk was not initialized"));
    // Within the process a debug start-up removes the record, finds none, and stays disabled.
    ZAManager::sharedInstance().initialize("k", true);
    EXPECT_EQ(app.console.lines().back(), "Zelnora Ads sdk disabled");
    EXPECT_FALSE(ZAPreferencesUtil::getSdkConfig().has_value());
  });
}

TEST(StartUp, DebugModeIgnoresStoredKillAndFetchesAfresh) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    ZAPreferencesUtil::saveConfig(kit_test::storedConfig("nt", "nai", true));
    ZAManager::sharedInstance().initialize("k", true);
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_TRUE(ZAManager::sharedInstance().isDebugMode());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
    EXPECT_FALSE(ZAManager::sharedInstance().isDisabled());
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig()->kill, std::nullopt);
    EXPECT_EQ(server.requests(), 1);
  });
}

TEST(StartUp, FreshKillTakesEffectOnlyAtTheNextLaunch) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    server.answer("k", {200, R"({"nt":"a","nai":"b","k":true})"});
    ZAManager::sharedInstance().initialize("k");
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
    EXPECT_FALSE(ZAManager::sharedInstance().isDisabled());
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig()->kill, true);
  });
}

TEST(StartUp, StoredConfigurationMakesTheKitUsableWithTheNetworkDown) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp app;
    app.writeConfig("http://127.0.0.1:" + std::to_string(test_support::refusedPort()) + "/c/{key}");
    auto guard = app.install();
    ZAPreferencesUtil::saveConfig(kit_test::storedConfig("nt", "nai", false));
    ZAManager::sharedInstance().initialize("k");
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());  // before any answer
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
    EXPECT_THAT(app.console.lines(), IsEmpty());
    app.advertising.trackingEnabled = true;
    app.advertising.identifier = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
    ZAManager::sharedInstance().setUserId("user-1");
    auto user = ZAPreferencesUtil::getUserData();
    ASSERT_TRUE(user.has_value());
    EXPECT_EQ(user->userId, "user-1");
    EXPECT_EQ(user->advertisingId, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  });
}

TEST(StartUp, SecondInitializeAfterSuccessNeitherFetchesNorCallsBack) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    auto& app = host.app;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    int callbacks = 0;
    ZAManager::sharedInstance().initialize("k", false, [&] { ++callbacks; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    ZAManager::sharedInstance().initialize("k", true, [&] { ++callbacks; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(server.requests(), 1);
    EXPECT_FALSE(ZAManager::sharedInstance().isDebugMode());  // the second call changed nothing
    EXPECT_THAT(app.console.lines(),
                ElementsAre("SDK initialized successfully", "Sdk already initialized"));
  });
}

TEST(StartUp, InitializeWhileTheFirstFetchIsInFlightFetchesTwice) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    std::atomic<int> callbacks{0};
    ZAManager::sharedInstance().initialize("k", false, [&] { ++callbacks; });
    // Not initialised yet unless the first answer already came back; only then is it refused.
    bool secondRan = !ZAManager::sharedInstance().isInitialized();
    ZAManager::sharedInstance().initialize("k", false, [&] { ++callbacks; });
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_EQ(server.requests(), secondRan ? 2 : 1);
    EXPECT_EQ(callbacks.load(), secondRan ? 2 : 1);
  });
}

TEST(Operations, BeforeStartUpOnlyCustomHeadersAreStored) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp app;
    auto guard = app.install();
    auto& kit = ZAManager::sharedInstance();
    kit.setUserId("u");
    kit.requestPermission();
    kit.setCustomHeaders({{"X-Host", "1"}});
    EXPECT_THAT(app.console.lines(),
                ElementsAre("Sdk was not initialized", "Sdk was not initialized"));
    EXPECT_FALSE(ZAPreferencesUtil::getUserData().has_value());
    EXPECT_EQ(app.location.managersMade.load(), 0);
    EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(),
              (std::map<std::string, std::string>{{"X-Host", "1"}}));
    EXPECT_FALSE(kit.isInitialized());
    EXPECT_FALSE(kit.isDebugMode());
    EXPECT_FALSE(kit.isDisabled());
  });
}

TEST(Operations, RequestPermissionTwiceAsksWithANewManagerEachTime) {
  KIT_IN_FRESH_PROCESS({
    kit_test::HostApp app;
    app.writeConfig("http://127.0.0.1:" + std::to_string(test_support::refusedPort()) + "/{key}");
    auto guard = app.install();
    ZAPreferencesUtil::saveConfig(kit_test::storedConfig("nt", "nai"));
    ZAManager::sharedInstance().initialize("k");
    ZAManager::sharedInstance().requestPermission();
    ZAManager::sharedInstance().requestPermission();
    EXPECT_EQ(app.location.managersMade.load(), 2);
    EXPECT_EQ(app.location.authorizationRequests.load(), 2);
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
  });
}

TEST(Operations, SameInstanceThroughDataAndSharedInstance) {
  EXPECT_EQ(&zelnora_core::data, &ZAManager::sharedInstance());
}

}  // namespace
