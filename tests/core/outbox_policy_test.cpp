// The rules of durable reports that need no network: which failures are kept, how long a failed
// delivery waits, and how kept events are framed into one body.
#include <chrono>
#include <cmath>

#include <gtest/gtest.h>

#include "../../zelnora_core/src/OutboxPolicy.h"

namespace zelnora_core::detail {
namespace {

TEST(OutboxPolicyTest, OnlyFailuresThatMayPassLaterAreKept) {
  const std::pair<platform::Error, bool> cases[] = {
      {{platform::kURLErrorDomain, platform::kURLErrorTimedOut, "timed out"}, true},
      {{platform::kURLErrorDomain, platform::kURLErrorBadURL, std::nullopt}, false},
      {{"StatusCode", 503, std::nullopt}, true},
      {{"StatusCode", 429, std::nullopt}, true},
      {{"StatusCode", 404, std::nullopt}, false},
      {{"StatusCode", -1, std::nullopt}, false},
      {{"Data", -1, std::nullopt}, false},
  };
  for (const auto& [error, kept] : cases) {
    EXPECT_EQ(mayPassLater(error), kept) << error.domain << " " << error.code;
  }
}

// One rule for both forms of Retry-After: at most an hour, never negative, whatever the service
// asks; a far-future date once made the delivery thread spin.
TEST(OutboxPolicyTest, RetryAfterIsReadInBothFormsAndCappedAtAnHour) {
  const double now = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"120", 120},
      {"Sun, 06 Nov 1994 08:50:07 GMT", 30},
      {"Sun, 06 Nov 1994 08:00:00 GMT", 0},
      {"Sun, 06 Nov 1994 10:49:37 GMT", 3600},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 3600},
      {"99999999999999999999999", 3600},
      {"soon", std::nullopt},
  };
  for (const auto& [value, seconds] : cases) {
    const platform::HTTPURLResponse answer{503, "", {{"retry-after", value}}};
    EXPECT_EQ(retryAfterSeconds(answer, now), seconds) << value;
  }
}

TEST(OutboxPolicyTest, BackOffAndBatchFraming) {
  EXPECT_EQ(backOffSeconds(3, 0.5), 4);
  EXPECT_EQ(backOffSeconds(40, 1), 600) << "the cap";
  EXPECT_EQ(
      platform::toString(batchBody({platform::toBytes("{\"a\":\"1\"}"), platform::toBytes("{}")})),
      "{\"events\":[{\"a\":\"1\"},{}]}");
}

// A wait of any length, however absurd, is a moment after now, never one in the past (a wait
// past the clock's range once wrapped around and spun the delivery thread).
TEST(OutboxPolicyTest, TheNextLookIsNeverBeforeNow) {
  const auto now = std::chrono::steady_clock::now();
  for (double seconds : {0.0, 0.001, 3600.0, 2.5e11, 1e300, HUGE_VAL}) {
    EXPECT_GT(nextLookAt(now, seconds), now) << seconds;
  }
}

}  // namespace
}  // namespace zelnora_core::detail
