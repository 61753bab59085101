// sendReport against the loopback server: the one event the service receives, and the single line
// a failed exchange prints.
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "EndToEnd.h"
#include "FreshProcess.h"
#include "support/LoopbackSocket.h"
#include "zelnora_core/ZAReportHelper.h"
#include "zelnora_core/ZAReportRequest.h"

namespace zelnora_core {
namespace {

using EventMap = std::map<std::string, std::string>;
using testing::LoopbackTest;

std::set<std::string> keysOf(const EventMap& map) {
  std::set<std::string> keys;
  for (const auto& [key, value] : map) keys.insert(key);
  return keys;
}

class ReportEndToEnd : public LoopbackTest {
 protected:
  // Waits for every exchange, then returns the single event of each request received.
  std::vector<EventMap> receivedEvents() {
    EXPECT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(60)));
    std::vector<EventMap> events;
    for (const auto& request : servers_.api.received()) {
      EXPECT_EQ(request.method, "POST");
      EXPECT_EQ(request.target, "/tracker/app");
      auto report = ZAReportRequest::fromJson(platform::toBytes(request.body));
      EXPECT_TRUE(report.has_value()) << request.body;
      if (!report) continue;
      EXPECT_EQ(report->events.size(), 1u) << request.body;
      if (!report->events.empty()) events.push_back(report->events.front());
    }
    return events;
  }
};

TEST_F(ReportEndToEnd, EventCarriesDeviceFactsUserIdAndGivenArgumentsOnly) {
  ZAPreferencesUtil::saveUserData("sample-user");
  console_.clear();
  ZAReportHelper::sendReport("sample-event", std::nullopt, "sample-type");
  auto events = receivedEvents();
  ASSERT_EQ(events.size(), 1u);
  EventMap& event = events[0];
  EXPECT_EQ(event["userId"], "sample-user");
  EXPECT_EQ(event["event"], "sample-event");
  EXPECT_EQ(event["t"], "sample-type");
  EXPECT_EQ(event.count("campaignUuid"), 0u);
  EXPECT_EQ(event["brand"], "Apple");
  EXPECT_EQ(event["manufacturer"], "Apple");
  std::set<std::string> expectedKeys = keysOf(ZAReportHelper::getDeviceInfoMap());
  expectedKeys.insert({"userId", "event", "t"});
  EXPECT_EQ(keysOf(event), expectedKeys);
  EXPECT_TRUE(diagnosticLines().empty()) << "a 200 answer prints nothing";
}

TEST_F(ReportEndToEnd, WithoutArgumentsOrUserTheEventIsTheDeviceMap) {
  ZAReportHelper::sendReport();
  auto events = receivedEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(keysOf(events[0]), keysOf(ZAReportHelper::getDeviceInfoMap()));
}

TEST_F(ReportEndToEnd, EmptyArgumentsAreSentAsEmptyText) {
  ZAReportHelper::sendReport("", "", "");
  auto events = receivedEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].at("event"), "");
  EXPECT_EQ(events[0].at("campaignUuid"), "");
  EXPECT_EQ(events[0].at("t"), "");
}

TEST_F(ReportEndToEnd, TwoQuickCallsSendTwoRequestsWithTheirOwnEventDate) {
  ZAReportHelper::sendReport("first");
  ZAReportHelper::sendReport("second");
  auto events = receivedEvents();
  ASSERT_EQ(events.size(), 2u);
  std::set<std::string> names;
  for (auto& event : events) {
    names.insert(event["event"]);
    EXPECT_FALSE(event["eventDate"].empty());
  }
  EXPECT_EQ(names, (std::set<std::string>{"first", "second"}));
}

struct FailureCase {
  const char* name;
  test_support::Answer answer;
  std::optional<std::string> printedLine;  // absent: the transport error's own description
  bool printsSomething;
};

class ReportOutcome : public ReportEndToEnd, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(ReportOutcome, PrintsOneLineForAnErrorAndNothingOtherwise) {
  servers_.api.answerEveryPathWith(GetParam().answer);
  ZAReportHelper::sendReport("e");
  ASSERT_EQ(receivedEvents().size(), 1u);
  const auto lines = diagnosticLines();
  if (!GetParam().printsSomething) {
    EXPECT_TRUE(lines.empty());
    return;
  }
  ASSERT_EQ(lines.size(), 1u);
  if (GetParam().printedLine) {
    EXPECT_EQ(lines[0], *GetParam().printedLine + "\n");
  } else {
    EXPECT_EQ(piecesContaining("\nError: " + lines[0]), 1u) << lines[0];
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ReportOutcome,
    ::testing::Values(
        FailureCase{"Ok", {200, "{}", false}, std::nullopt, false},
        FailureCase{"NoContent", {204, "", false}, std::nullopt, false},
        FailureCase{"NotFoundWithJson",
                    {404, "{\"error\":\"x\"}", false},
                    "The operation couldn\u2019t be completed. (StatusCode error 404.)",
                    true},
        FailureCase{"ServerError",
                    {500, "boom", false},
                    "The operation couldn\u2019t be completed. (StatusCode error 500.)",
                    true},
        FailureCase{"AnswerCutShort", {200, "{\"partial\":", true}, std::nullopt, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReportEndToEnd, ConcurrentReportsFromFourThreadsEachArriveOnceWithOneEvent) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kPerThread; ++i) {
        ZAReportHelper::sendReport("e-" + std::to_string(t) + "-" + std::to_string(i));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  auto events = receivedEvents();
  ASSERT_EQ(events.size(), static_cast<std::size_t>(kThreads * kPerThread));
  std::set<std::string> names;
  for (auto& event : events) names.insert(event["event"]);
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(piecesContaining("OUTGOING"), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(piecesContaining("INCOMMING"), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(piecesContaining("The operation"), 0u);
}

TEST(ReportFreshProcess, ConnectionRefusedPrintsTheTransportErrorOnce) {
  ZELNORA_EXPECT_IN_FRESH_PROCESS({
    testing::ChildChecks checks;
    platform::testing::FakeConsole console;
    platform::testing::InMemoryUserDefaults store;
    platform::testing::ScopedServices guard([&](auto& s) {
      s.console = &console;
      s.userDefaults = &store;
    });
    const std::string base = "http://127.0.0.1:" + std::to_string(test_support::refusedPort());
    ZAPreferencesUtil::saveApiConfig({"", base, base});
    ZAReportHelper::sendReport("e");
    checks.check(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)), "idle");
    const auto pieces = console.pieces();
    checks.equal(pieces.size(), 7u, "two dumps and one line");
    if (pieces.size() == 7) {
      const std::string& line = pieces[6];
      checks.check(line.size() > 1 && line.back() == '\n', "one line");
      checks.check(pieces[4].find("\nError: " + line) != std::string::npos,
                   "the line is the error's description: " + line);
    }
    checks.finish();
  });
}

}  // namespace
}  // namespace zelnora_core
