// The rules of durable reports that need no network: which failures are kept, how long a failed
// delivery waits, and how kept events are framed into one body.
#include <gtest/gtest.h>

#include "zelnora_core/src/OutboxPolicy.h"

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

TEST(OutboxPolicyTest, RetryAfterAndBackOffSayHowLongToWait) {
  auto answer = [](std::string value) {
    return platform::HTTPURLResponse{503, "", {{"retry-after", std::move(value)}}};
  };
  const double now = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
  EXPECT_EQ(retryAfterSeconds(answer("120"), now), 120);
  EXPECT_EQ(retryAfterSeconds(answer("Sun, 06 Nov 1994 08:50:07 GMT"), now), 30);
  EXPECT_EQ(retryAfterSeconds(answer("soon"), now), std::nullopt);
  EXPECT_EQ(retryAfterSeconds(answer("99999999999999999999999"), now), 3600);
  EXPECT_EQ(backOffSeconds(3, 0.5), 4);
  EXPECT_EQ(backOffSeconds(40, 1), 600) << "the cap";
  EXPECT_EQ(
      platform::toString(batchBody({platform::toBytes("{\"a\":\"1\"}"), platform::toBytes("{}")})),
      "{\"events\":[{\"a\":\"1\"},{}]}");
  EXPECT_EQ(eventsText(platform::toBytes("{\"events\":[]}")), std::nullopt);
}

}  // namespace
}  // namespace zelnora_core::detail
