// The reference service's fault modes, seen by the platform's URL session one exchange at a time,
// and short fault runs of the zelnora-load program: whatever the peer does, every report
// completes exactly once and the program ends.
#include <chrono>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "ReferenceService.h"
#include "platform/Error.h"
#include "platform/Services.h"
#include "platform/Url.h"
#include "platform/UrlSession.h"

namespace zelnora_tools {
namespace {

using namespace std::chrono_literals;

struct Outcome {
  std::optional<platform::Bytes> body;
  std::optional<platform::HTTPURLResponse> response;
  std::optional<platform::Error> error;
  int completions = 0;
};

// One POST to /tracker/app on a service in `mode`, through the shared session.
Outcome exchangeWith(FaultMode mode, std::chrono::duration<double> timeout = 10s) {
  ReferenceServiceOptions options;
  options.fault = mode;
  ReferenceService service(std::move(options));
  EXPECT_GT(service.start(), 0);
  platform::URLRequest request(*platform::Url::parse(service.baseUrl() + "/tracker/app"),
                               platform::CachePolicy::useProtocolCachePolicy, timeout);
  request.httpMethod = "POST";
  const std::string body = R"({"events":[{"event":"fault"}]})";
  request.httpBody = platform::Bytes(body.begin(), body.end());
  Outcome outcome;
  platform::urlSession().dataTask(std::move(request), [&](auto body, auto response, auto error) {
    outcome.body = std::move(body);
    outcome.response = platform::asHTTPURLResponse(response);
    outcome.error = std::move(error);
    ++outcome.completions;
  });
  EXPECT_TRUE(platform::urlSession().waitUntilIdle(30s));
  const auto received = service.received();
  EXPECT_EQ(received.size(), 1u);
  if (!received.empty()) {
    EXPECT_EQ(received[0].path, "/tracker/app");
    EXPECT_EQ(received[0].body, body) << "the request is read whole before the fault";
  }
  return outcome;
}

TEST(FaultModeTest, BrokenAnswersEndInTheirTransportError) {
  const struct {
    FaultMode mode;
    std::int64_t code;
  } cases[] = {
      {FaultMode::reset, platform::kURLErrorNetworkConnectionLost},
      {FaultMode::closeMidBody, platform::kURLErrorNetworkConnectionLost},
      {FaultMode::garbageStatus, platform::kURLErrorBadServerResponse},
      // 10 MB is past what the session holds for one answer.
      {FaultMode::hugeBody, platform::kURLErrorDataLengthExceedsMaximum},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(faultModeName(c.mode)));
    const Outcome outcome = exchangeWith(c.mode);
    EXPECT_EQ(outcome.completions, 1);
    ASSERT_TRUE(outcome.error.has_value());
    EXPECT_EQ(outcome.error->domain, platform::kURLErrorDomain);
    EXPECT_EQ(outcome.error->code, c.code);
    EXPECT_FALSE(outcome.response.has_value());
  }
}

TEST(FaultModeTest, StallEndsWhenTheRequestTimesOut) {
  const Outcome outcome = exchangeWith(FaultMode::stall, 300ms);
  EXPECT_EQ(outcome.completions, 1);
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->code, platform::kURLErrorTimedOut);
}

TEST(FaultModeTest, SlowAnswersArriveWhole) {
  const Outcome slow = exchangeWith(FaultMode::slowDrip);
  ASSERT_TRUE(slow.response.has_value());
  EXPECT_EQ(slow.response->statusCode, 200);
  ASSERT_TRUE(slow.body.has_value());
  EXPECT_EQ(std::string(slow.body->begin(), slow.body->end()), R"({"status":"ok"})");
}

TEST(FaultModeTest, ModeNamesRoundTrip) {
  for (const char* name :
       {"none", "reset", "close-mid-body", "stall", "garbage-status", "huge-body", "slow-drip"}) {
    const auto mode = faultModeNamed(name);
    ASSERT_TRUE(mode.has_value()) << name;
    EXPECT_EQ(faultModeName(*mode), name);
  }
  EXPECT_FALSE(faultModeNamed("Reset").has_value());
  EXPECT_FALSE(faultModeNamed("").has_value());
}

std::string loadProgram() { return zelnora_tools_testing::toolsDirectory() + "/load/zelnora-load"; }

// The summary's key=value words.
std::map<std::string, std::string> summaryOf(const std::string& standardError) {
  std::map<std::string, std::string> fields;
  const auto start = standardError.rfind("zelnora-load: ");
  if (start == std::string::npos) return fields;
  std::istringstream words(standardError.substr(start));
  for (std::string word; words >> word;) {
    if (auto equals = word.find('='); equals != std::string::npos) {
      fields[word.substr(0, equals)] = word.substr(equals + 1);
    }
  }
  return fields;
}

// A short fault run per mode: 50 reports through ZAReportHelper::sendReport and 50 tracking
// requests with counting completions, from two threads; a stalling peer gets time-outs clamped to
// 1 s (any other clamp would also cut off slow but healthy answers).
TEST(FaultRunTest, EveryReportCompletesExactlyOnceWhateverThePeerDoes) {
  constexpr int kReports = 50;
  const struct {
    const char* mode;
    bool answersSucceed;
  } cases[] = {{"none", true},     {"reset", false},          {"close-mid-body", false},
               {"stall", false},   {"garbage-status", false}, {"huge-body", false},
               {"slow-drip", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    std::vector<std::string> arguments = {
        "--reports", std::to_string(kReports), "--threads", "2", "--fault", c.mode, "--wait", "60"};
    if (std::string(c.mode) == "stall") arguments.insert(arguments.end(), {"--timeout", "1"});
    const auto result = zelnora_tools_testing::runChild(loadProgram(), arguments);
    ASSERT_TRUE(result.exitedNormally) << result.standardError;
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_TRUE(result.standardOutput.empty()) << "the kit's output goes to /dev/null";
    auto summary = summaryOf(result.standardError);
    EXPECT_EQ(summary["report.settled"], "true");
    EXPECT_EQ(summary["tracking.settled"], "true");
    EXPECT_EQ(summary["tracking.completions"], std::to_string(kReports));
    EXPECT_EQ(summary["tracking.exactly_once"], std::to_string(kReports));
    EXPECT_EQ(summary[c.answersSucceed ? "tracking.succeeded" : "tracking.failed"],
              std::to_string(kReports));
    if (c.answersSucceed) {
      // Every report reached the service once: nothing retried, nothing lost.
      EXPECT_EQ(summary["report.received"], std::to_string(kReports));
      EXPECT_EQ(summary["tracking.received"], std::to_string(kReports));
    }
    EXPECT_EQ(summary["consistent"], "true");
  }
}

}  // namespace
}  // namespace zelnora_tools
