// The report body the service receives, byte for byte, and the kit used from several host threads
// at once (run under ThreadSanitizer in CI).
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Services.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "support/RecordingServer.h"
#include "support/TempDirectory.h"
#include "zelnora_core/APIService.h"
#include "zelnora_core/ZACoreApiFactory.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportHelper.h"
#include "zelnora_core/ZAReportRequest.h"

namespace zelnora_core {
namespace {

std::string json(const ZAReportRequest& request) { return platform::toString(request.toJson()); }

TEST(ReportJson, IsCompactAndEscapesLikeThePhonesEncoder) {
  EXPECT_EQ(json(ZAReportRequest{}), R"({"events":[]})");
  EXPECT_EQ(json(ZAReportRequest{{{{"a", "1"}, {"url", "https://a/b"}}, {}}}),
            R"({"events":[{"a":"1","url":"https:\/\/a\/b"},{}]})");
}

// Host threads start the kit, use every public operation and send reports at once, while the
// answers arrive on the session's queue: every fetch calls back once, every report arrives once.
TEST(Concurrency, HostThreadsUseTheKitAndReportAtOnce) {
  test_support::RecordingServer server(
      [](const httplib::Request& request, httplib::Response& response) {
        response.set_content(request.method == "GET" ? R"({"nt":"a","nai":"b"})" : "{}",
                             "application/json");
      },
      false);
  test_support::TempDirectory bundle;
  platform::testing::FakeMainBundle mainBundle;
  mainBundle.resources["ZelnoraAdsConfig.plist"] = bundle.write(
      "ZelnoraAdsConfig.plist",
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>INIT_CONFIG</key><string>" +
          server.url("/config/{key}") + "</string><key>API_BASE_URL</key><string>" + server.base() +
          "</string><key>VQX_BASE_URL</key><string>" + server.base() + "</string></dict></plist>");
  platform::testing::FakeConsole console;
  platform::testing::InMemoryUserDefaults store;
  platform::testing::FakeLocationServices location;
  platform::testing::ScopedServices guard([&](platform::Services& s) {
    s.console = &console;
    s.mainBundle = &mainBundle;
    s.userDefaults = &store;
    s.location = &location;
  });
  ZAManager& kit = ZAManager::sharedInstance();
  kit.initialize("k");  // stores the base URLs before the first report
  std::atomic<int> callbacks{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 60; ++i) {
        switch (i % 6) {
          case 0: kit.initialize("k", i % 12 == 0, [&] { ++callbacks; }); break;
          case 1: kit.setUserId("user-" + std::to_string(i)); break;
          case 2: kit.setCustomHeaders({{"X-I", std::to_string(i)}}); break;
          case 3: kit.requestPermission(); break;
          case 4: (void)(kit.isInitialized() + kit.isDebugMode() + kit.isDisabled()); break;
          case 5: ZAReportHelper::sendReport(std::to_string(t * 100 + i)); break;
        }
      }
    });
  }
  APIService::shared().request(ZACoreApiFactory::sendAppTrackerRequest({}), nullptr);
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(60)));
  EXPECT_TRUE(kit.isInitialized());
  std::size_t fetches = 0;
  std::multiset<std::string> events;
  for (const auto& request : server.received()) {
    if (request.method == "GET") {
      ++fetches;
      continue;
    }
    auto report = ZAReportRequest::fromJson(platform::toBytes(request.body));
    ASSERT_TRUE(report.has_value()) << request.body;
    if (report->events.empty()) continue;  // the one sent without a completion
    ASSERT_EQ(report->events.size(), 1u);
    events.insert(report->events[0].at("event"));
  }
  EXPECT_EQ(callbacks.load() + 1, static_cast<int>(fetches)) << "every fetch answered once";
  EXPECT_EQ(events.size(), 40u);
  EXPECT_EQ(std::set<std::string>(events.begin(), events.end()).size(), 40u);
  EXPECT_EQ(console.text().find("The operation"), std::string::npos);
}

// A device without location services hands out no location manager: asking for the permission
// does nothing and the device information carries no position.
TEST(Location, ADeviceWithoutLocationServicesAsksNothingAndReportsNoPosition) {
  test_support::TempDirectory bundle;
  platform::testing::FakeMainBundle mainBundle;
  mainBundle.resources["ZelnoraAdsConfig.plist"] = bundle.write(
      "ZelnoraAdsConfig.plist",
      "<plist version=\"1.0\"><dict><key>INIT_CONFIG</key><string>"
      "http://127.0.0.1:9/{key}</string><key>API_BASE_URL</key><string>http://127.0.0.1:9</string>"
      "<key>VQX_BASE_URL</key><string>http://127.0.0.1:9</string></dict></plist>");
  platform::testing::FakeConsole console;
  platform::testing::InMemoryUserDefaults store;
  platform::testing::FakeLocationServices location;
  location.offersManagers = false;
  platform::testing::ScopedServices guard([&](platform::Services& s) {
    s.console = &console;
    s.mainBundle = &mainBundle;
    s.userDefaults = &store;
    s.location = &location;
  });
  ZAPreferencesUtil::saveConfig(ZAConfig{"a", "b", false, "k"});  // starts without a fetch
  ZAManager& kit = ZAManager::sharedInstance();
  kit.initialize("k");
  ASSERT_TRUE(kit.isInitialized());
  kit.requestPermission();
  EXPECT_EQ(ZAReportHelper::getDeviceInfoMap().count("lat"), 0u);
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(10)));
}

}  // namespace
}  // namespace zelnora_core
