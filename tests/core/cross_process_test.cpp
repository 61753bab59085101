// The kit across launches and processes, on the real SQLite suite: the kill switch survives a
// relaunch, and the host app and its notification service extension share one suite.
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KitFixture.h"
#include "support/TempDirectory.h"
#include "zelnora_core/ZAManager.h"

namespace {

using ::testing::ElementsAre;
using zelnora_core::ZAManager;
using zelnora_core::ZAPreferencesUtil;

// A directory shared by the fresh processes of one test: the parent makes it and passes it on
// through the environment, which the children inherit.
class SharedContainer {
 public:
  SharedContainer() {
    if (const char* inherited = std::getenv(kVariable)) {
      path_ = inherited;
      return;
    }
    owner_ = std::make_unique<test_support::TempDirectory>();
    path_ = owner_->path();
    ::setenv(kVariable, path_.c_str(), 1);
  }
  ~SharedContainer() {
    if (owner_) ::unsetenv(kVariable);
  }
  // Points the default suite store at this directory (before the store's first use).
  void useAsDataHome() const { ::setenv("XDG_DATA_HOME", path_.c_str(), 1); }

 private:
  static constexpr const char* kVariable = "ZELNORA_TEST_SHARED_CONTAINER";
  std::unique_ptr<test_support::TempDirectory> owner_;
  std::string path_;
};

TEST(AcrossLaunches, KillSwitchPersistsUntilADebugStartUpLiftsIt) {
  SharedContainer container;
  // Launch 1: the service answers with the kill switch on; it is stored, not yet applied.
  KIT_IN_FRESH_PROCESS({
    container.useAsDataHome();
    kit_test::ConfiguredHost host(true);
    auto& server = host.server;
    auto& app = host.app;
    server.answer("k", {200, R"({"nt":"a","nai":"b","k":true})"});
    ZAManager::sharedInstance().initialize("k");
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
    EXPECT_THAT(app.console.lines(), ElementsAre("SDK initialized successfully"));
  });
  // Launches 2 and 3: disabled, nothing sent.
  for (int launch = 0; launch < 2; ++launch) {
    KIT_IN_FRESH_PROCESS({
      container.useAsDataHome();
      kit_test::ConfiguredHost host(true);
      auto& server = host.server;
      auto& app = host.app;
      ZAManager::sharedInstance().initialize("k");
      ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
      EXPECT_TRUE(ZAManager::sharedInstance().isDisabled());
      EXPECT_EQ(server.requests(), 0);
      EXPECT_THAT(app.console.lines(), ElementsAre("Zelnora Ads sdk disabled"));
    });
  }
  // Launch 4 in debug mode: the stored record is removed and a fresh one fetched.
  KIT_IN_FRESH_PROCESS({
    container.useAsDataHome();
    kit_test::ConfiguredHost host(true);
    auto& server = host.server;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    ZAManager::sharedInstance().initialize("k", true);
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_FALSE(ZAManager::sharedInstance().isDisabled());
    EXPECT_TRUE(ZAManager::sharedInstance().isInitialized());
    EXPECT_EQ(server.requests(), 1);
  });
}

TEST(AcrossProcesses, ExtensionReadsWhatTheHostStored) {
  SharedContainer container;
  KIT_IN_FRESH_PROCESS({
    container.useAsDataHome();
    kit_test::HostApp host("com.example.shared");
    auto guard = host.install(true);
    host.advertising.trackingEnabled = true;
    host.advertising.identifier = "11111111-2222-3333-4444-555555555555";
    ZAPreferencesUtil::saveCustomHeaders({{"X-Tenant", "blue"}});
    ZAPreferencesUtil::saveUserData("host-user");
    ZAPreferencesUtil::saveConfig({"nt", "nai", {}, "channel"});
  });
  KIT_IN_FRESH_PROCESS({
    container.useAsDataHome();
    kit_test::HostApp extension("com.example.shared.ZelnoraAdsNotificationService");
    auto guard = extension.install(true);
    EXPECT_EQ(ZAPreferencesUtil::appGroupSuiteName(), "group.com.example.shared.za");
    EXPECT_EQ(ZAPreferencesUtil::getCustomHeaders(),
              (std::map<std::string, std::string>{{"X-Tenant", "blue"}}));
    EXPECT_EQ(ZAPreferencesUtil::getUserData(),
              (zelnora_core::ZAUserDataCache{"host-user", "11111111-2222-3333-4444-555555555555"}));
    EXPECT_EQ(ZAPreferencesUtil::getSdkConfig()->zelnoraAdsAppId, "channel");
    ZAPreferencesUtil::removeCustomHeaders();
  });
  KIT_IN_FRESH_PROCESS({
    container.useAsDataHome();
    kit_test::HostApp host("com.example.shared");
    auto guard = host.install(true);
    EXPECT_FALSE(ZAPreferencesUtil::getCustomHeaders().has_value());
  });
}

TEST(ManagerConcurrency, EveryPublicOperationFromSeveralThreadsAtOnce) {
  KIT_IN_FRESH_PROCESS({
    kit_test::ConfiguredHost host;
    auto& server = host.server;
    server.answer("k", {200, R"({"nt":"a","nai":"b"})"});
    auto& kit = ZAManager::sharedInstance();
    std::atomic<int> callbacks{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < 50; ++i) {
          switch ((t + i) % 6) {
            case 0: kit.initialize("k", i % 2 == 0, [&] { ++callbacks; }); break;
            case 1: kit.setUserId("user-" + std::to_string(i)); break;
            case 2: kit.setCustomHeaders({{"X-I", std::to_string(i)}}); break;
            case 3: kit.requestPermission(); break;
            case 4: (void)(kit.isInitialized() + kit.isDebugMode() + kit.isDisabled()); break;
            case 5: (void)ZAPreferencesUtil::getSdkConfig(); break;
          }
        }
      });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(kit_test::HostApp::waitForExchanges());
    EXPECT_TRUE(kit.isInitialized());
    EXPECT_GE(callbacks.load(), 1);
    EXPECT_EQ(callbacks.load(), server.requests() - 0);  // every fetch answered 200 once
    EXPECT_TRUE(ZAPreferencesUtil::getCustomHeaders().has_value());
  });
}

}  // namespace
