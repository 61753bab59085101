// Durable reports end to end: real zelnora-host processes (the app and its extension) sharing one
// data directory, against the reference service, down and then up.
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostBundle.h"
#include "ReferenceService.h"
#include "platform/ReportOutbox.h"
#include "support/ChildProcess.h"
#include "support/TempDirectory.h"

namespace zelnora_tools {
namespace {

using test_support::ChildResult;
using testing::HasSubstr;

const char* const kGroup = "group.com.zelnora.demo.za";  // the demo bundle's application group

class DurableReportsTest : public testing::Test {
 protected:
  void SetUp() override {
    bundle_ = scratch_.subdirectory("bundle");
    data_ = scratch_.subdirectory("data");
    startService({});
    ASSERT_TRUE(zelnora_host::writeHostBundle(
        bundle_, zelnora_host::settingsForService(service_->baseUrl())));
  }

  void startService(ReferenceServiceOptions options) {
    options.registry = KeyRegistry::withDemoKey("demo-key");
    options.port = port_;
    if (service_) service_->stop();
    service_ = std::make_unique<ReferenceService>(std::move(options));
    port_ = service_->start();
    ASSERT_GT(port_, 0);
  }

  ChildResult runHost(std::vector<std::string> commands) {
    commands.insert(commands.begin(), {"--bundle", bundle_});
    return test_support::runChild(test_support::toolsDirectory() + "/host/zelnora-host", commands,
                                  {{"XDG_DATA_HOME", data_}});
  }

  // Reports sent while the service is down (connection refused), named prefix0, prefix1, ...
  ChildResult sendWhileDown(const std::string& prefix, int count) {
    std::vector<std::string> commands{"durable-reports on", "initialize demo-key", "wait"};
    for (int i = 0; i < count; ++i) {
      commands.push_back("send-report event=" + prefix + std::to_string(i));
    }
    commands.insert(commands.end(), {"wait", "outbox"});
    return runHost(commands);
  }

  // The "event" of every event of every tracking request, in arrival order.
  std::vector<std::string> trackedEvents() const {
    std::vector<std::string> events;
    for (const RecordedRequest& request : service_->received()) {
      if (request.path != "/tracker/app") continue;
      const nlohmann::json body = nlohmann::json::parse(request.body);
      for (const auto& event : body["events"]) {
        events.push_back(event.value("event", ""));
      }
    }
    return events;
  }

  static std::vector<std::string> named(const std::string& prefix, int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) names.push_back(prefix + std::to_string(i));
    return names;
  }

  test_support::TempDirectory scratch_;
  std::string bundle_;
  std::string data_;
  int port_ = 0;
  std::unique_ptr<ReferenceService> service_;
};

TEST_F(DurableReportsTest, OnlyFailuresThatMayPassLaterAreKeptAndSentAgain) {
  struct Case {
    const char* name;
    bool durable;
    int status;
    std::size_t requests;  // tracking requests the service sees for one report
  };
  const Case cases[] = {
      {"503", true, 503, 2},
      {"429", true, 429, 2},
      {"400 refused for good", true, 400, 1},
      {"default mode", false, 503, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(data_);
    std::filesystem::create_directory(data_);
    ReferenceServiceOptions outage;
    outage.failFirst = 1;
    outage.failStatus = c.status;
    startService(outage);
    std::vector<std::string> commands{"initialize demo-key", "wait", "send-report event=a", "wait"};
    if (c.durable)
      commands = {"durable-reports on", commands[0], "wait", commands[2], "wait", "outbox"};
    ChildResult run = runHost(commands);
    EXPECT_EQ(run.exitStatus, 0) << run.standardOutput;
    EXPECT_THAT(run.standardOutput, HasSubstr("(StatusCode error " + std::to_string(c.status)));
    EXPECT_EQ(trackedEvents(), std::vector<std::string>(c.requests, "a"));
    if (c.durable) {
      EXPECT_THAT(run.standardOutput, HasSubstr("host: outbox count=0 "));
    }
    const bool outboxFileMade =
        std::filesystem::exists(data_ + "/zelnora/app-groups/" + kGroup + ".outbox.db");
    EXPECT_EQ(outboxFileMade, c.durable) << "default mode must leave no trace";
  }
}

TEST_F(DurableReportsTest, RetryAfterHoldsKeptReportsUntilAnotherReportGoesThrough) {
  ReferenceServiceOptions outage;
  outage.failFirst = 2;
  outage.retryAfterSeconds = 3600;
  startService(outage);
  ChildResult run =
      runHost({"durable-reports on", "initialize demo-key", "wait", "send-report event=a", "wait",
               "send-report event=b", "wait", "outbox", "send-report event=c", "wait", "outbox"});
  EXPECT_EQ(run.exitStatus, 0) << run.standardError;
  EXPECT_THAT(run.standardOutput, HasSubstr("host: outbox count=2 "));
  EXPECT_THAT(run.standardOutput, HasSubstr("host: outbox count=0 "));
  EXPECT_EQ(trackedEvents(), (std::vector<std::string>{"a", "b", "c", "a", "b"}))
      << "a kept report tried before its Retry-After, or not set off by the next success";
  EXPECT_EQ(service_->received().size(), 1u + 4u) << "the kept two go out as one batch";
}

TEST_F(DurableReportsTest, ReportsKeptOfflineAreDeliveredOnceInOrderByTheNextProcess) {
  {  // a nearly full outbox: the first report kept pushes out this oldest one
    auto outbox =
        platform::makeSqliteReportOutboxStore(data_ + "/zelnora/app-groups")->outbox(kGroup);
    ASSERT_TRUE(outbox);
    outbox->transact([](platform::ReportOutboxTransaction& kept) {
      return kept.append(platform::Bytes(999'900, 'x'), std::chrono::system_clock::now());
    });
  }
  service_->stop();
  ChildResult offline = sendWhileDown("e", 60);
  EXPECT_EQ(offline.exitStatus, 0) << offline.standardError;
  EXPECT_THAT(offline.standardOutput, HasSubstr("host: outbox count=60 "));
  const std::size_t full = offline.standardOutput.find("Outbox full: dropped 1 oldest reports\n");
  EXPECT_NE(full, std::string::npos);
  EXPECT_EQ(full, offline.standardOutput.rfind("Outbox full:")) << "more than one line";
  EXPECT_TRUE(trackedEvents().empty());

  ReferenceServiceOptions slowConfiguration;
  slowConfiguration.configurationDelay = std::chrono::milliseconds(300);
  startService(slowConfiguration);
  ChildResult online = runHost({"durable-reports on", "initialize demo-key", "wait", "outbox"});
  EXPECT_THAT(online.standardOutput, HasSubstr("host: outbox count=0 "));
  EXPECT_EQ(trackedEvents(), named("e", 60));
  const std::vector<RecordedRequest> received = service_->received();
  ASSERT_EQ(received.size(), 1u + 2u) << "one configuration fetch, two batches";
  for (const RecordedRequest& batch : {received[1], received[2]}) {
    EXPECT_EQ(batch.header("X-ZELNORA-CHANNEL-UUID"), "demo-key") << "sent before the answer";
  }
}

TEST_F(DurableReportsTest, TheKillSwitchHoldsTheBacklogUntilAStartUpFindsItLifted) {
  service_->stop();
  sendWhileDown("k", 3);
  startService({});
  const std::vector<std::string> killed{
      R"(set-pref zelnora_ads_prefs data {\"nt\":\"apns\",\"nai\":\"a\",\"k\":true})",
      "durable-reports on",
      "initialize demo-key",
      "flush-outbox",
      "wait",
      "outbox"};
  ChildResult disabled = runHost(killed);
  EXPECT_THAT(disabled.standardOutput, HasSubstr("Zelnora Ads sdk disabled"));
  EXPECT_THAT(disabled.standardOutput, HasSubstr("host: outbox count=3 "));
  EXPECT_TRUE(trackedEvents().empty()) << "a switched-off kit delivered its backlog";

  // Debug mode lifts the switch; the configuration endpoint failing must not hold the backlog.
  service_->setKeyAnswer("demo-key", {500, R"({"error":"down"})"});
  runHost({"durable-reports on", "initialize demo-key debug=true", "wait"});
  EXPECT_EQ(trackedEvents(), named("k", 3));
}

TEST_F(DurableReportsTest, ConcurrentAppAndExtensionSharingTheOutboxDeliverEveryReportOnce) {
  service_->stop();
  sendWhileDown("app", 150);
  sendWhileDown("ext", 150);

  startService({});
  std::vector<std::string> flush{"durable-reports on", "initialize demo-key", "flush-outbox",
                                 "wait", "outbox"};
  auto app = std::async(std::launch::async, [&] { return runHost(flush); });
  auto extension = std::async(std::launch::async, [&] { return runHost(flush); });
  app.get();
  extension.get();

  std::vector<std::string> expected = named("app", 150);
  for (const std::string& name : named("ext", 150)) expected.push_back(name);
  EXPECT_EQ(trackedEvents(), expected) << "a report lost, sent twice or out of order";
}

}  // namespace
}  // namespace zelnora_tools
