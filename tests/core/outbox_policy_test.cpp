// The rules of durable reports that need no network: which failures are kept, how long a failed
// delivery waits, how kept events are framed into one body, and the outbox ledger (caps, one
// delivering process at a time, back-off) over the in-memory outbox store.
#include <chrono>
#include <cmath>

#include <gtest/gtest.h>

#include "platform/testing/FakePlatform.h"
#include "zelnora_core/src/OutboxLedger.h"
#include "zelnora_core/src/OutboxPolicy.h"

namespace zelnora_core::detail {
namespace {

using platform::toBytes;
using std::chrono::hours;
using std::chrono::seconds;

const SystemTime kDayOne = SystemTime(hours(24 * 20000));
// A live process that is not this one (init), and one that cannot exist (beyond any pid_max).
const std::string kLiveOther = "1:other";
const std::string kDeadOther = "2147483647:gone";

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
  const SystemTime now = SystemTime(seconds(784111777));  // Sun, 06 Nov 1994 08:49:37 GMT
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"120", 120},
      {"Sun, 06 Nov 1994 08:50:07 GMT", 30},
      {"Sun, 06 Nov 1994 08:00:00 GMT", 0},
      {"Sun, 06 Nov 1994 10:49:37 GMT", 3600},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 3600},
      {"99999999999999999999999", 3600},
      {"soon", std::nullopt},
  };
  for (const auto& [value, wait] : cases) {
    const platform::HTTPURLResponse answer{503, "", {{"retry-after", value}}};
    const std::optional<Seconds> asked = retryAfter(answer, now);
    EXPECT_EQ(asked ? std::optional(asked->count()) : std::nullopt, wait) << value;
  }
}

// A wait of any length, however absurd, is a moment after now, never one in the past (a wait
// past the clock's range once wrapped around and spun the delivery thread).
TEST(OutboxPolicyTest, BackOffFramingAndTheNextLookNeverBeforeNow) {
  EXPECT_EQ(backOff(3, 0.5), Seconds(4));
  EXPECT_EQ(backOff(40, 1), Seconds(600)) << "the cap";
  EXPECT_EQ(platform::toString(batchBody({toBytes("{\"a\":\"1\"}"), toBytes("{}")})),
            "{\"events\":[{\"a\":\"1\"},{}]}");
  const auto now = std::chrono::steady_clock::now();
  for (double wait : {0.0, 3600.0, 2.5e11, 1e300, HUGE_VAL, -1.0}) {
    EXPECT_GT(nextLookAt(now, Seconds(wait)), now) << wait;
  }
}

class OutboxLedgerTest : public testing::Test {
 protected:
  static std::vector<std::string> claimAll(OutboxLedger& ledger, const std::string& owner) {
    std::vector<std::string> texts;
    ClaimRequest everything{owner, kDayOne + hours(24 * 100), seconds(120), 1000, 1 << 30, true};
    if (auto batch = ledger.claim(everything)) {
      for (const platform::Bytes& report : batch->reports)
        texts.push_back(platform::toString(report));
    }
    return texts;
  }
  ClaimRequest at(const std::string& owner, int second, bool ignoreBackOff = false) {
    return {owner, kDayOne + seconds(second), seconds(120), 2, 1 << 20, ignoreBackOff};
  }

  platform::testing::InMemoryReportOutboxes store_;
  std::shared_ptr<platform::ReportOutbox> outbox_ = store_.outbox("group");
  OutboxLedger ledger_{*outbox_};
  const std::string me_ = platform::outboxOwnerName();
};

TEST_F(OutboxLedgerTest, BoundsDropTheOldestReportsAndCountThem) {
  struct Case {
    const char* name;
    OutboxLimits limits;
    std::vector<std::pair<std::string, int>> reports;  // text, kept on day
    std::size_t dropped;
    std::vector<std::string> left;
  };
  const Case cases[] = {
      {"count",
       {3, 1 << 20, hours(7 * 24)},
       {{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}, {"e", 1}},
       2,
       {"c", "d", "e"}},
      {"bytes", {100, 5, hours(7 * 24)}, {{"aa", 1}, {"bb", 1}, {"ccc", 1}}, 1, {"bb", "ccc"}},
      {"age",
       {100, 1 << 20, hours(7 * 24)},
       {{"old", 1}, {"new", 9}, {"week", 3}},
       1,
       {"week", "new"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto outbox = store_.outbox(c.name);
    OutboxLedger ledger(*outbox);
    std::size_t dropped = 0;
    for (const auto& [text, day] : c.reports) {
      const SystemTime keptAt = kDayOne + hours(24 * day);
      dropped += ledger.keep(toBytes(text), keptAt, keptAt, c.limits).value_or(99);
    }
    EXPECT_EQ(dropped, c.dropped);
    EXPECT_EQ(claimAll(ledger, me_), c.left);
  }
}

TEST_F(OutboxLedgerTest, ALeaseKeepsABatchToOneOwnerUntilItEndsOrItsProcessIsGone) {
  for (const char* text : {"r1", "r2", "r3"}) ledger_.keep(toBytes(text), kDayOne, kDayOne);

  ASSERT_TRUE(ledger_.claim(at(kDeadOther, 1)));
  auto mine = ledger_.claim(at(me_, 2));
  ASSERT_TRUE(mine) << "a lease of a process that is gone still held";
  EXPECT_EQ(mine->reports.size(), 2u);
  EXPECT_FALSE(ledger_.claim(at(kLiveOther, 3, true))) << "claimed under a lease";

  ledger_.complete(kLiveOther, {});  // not the holder: ends nothing
  EXPECT_FALSE(ledger_.claim(at(kLiveOther, 4, true)));
  ledger_.complete(me_, mine->ids);
  auto rest = ledger_.claim(at(kLiveOther, 5));
  ASSERT_TRUE(rest);
  EXPECT_EQ(rest->reports, std::vector<platform::Bytes>{toBytes("r3")});
  EXPECT_TRUE(ledger_.claim(at(me_, 126))) << "a lease outlived its time";
}

TEST_F(OutboxLedgerTest, AFailedAttemptHoldsClaimsBackAndCountsTheFailure) {
  ledger_.keep(toBytes("r1"), kDayOne, kDayOne);
  ledger_.release(me_, kDayOne + seconds(999));  // not the lease holder: changes nothing
  auto batch = ledger_.claim(at(me_, 1));
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->failedAttempts, 0);
  ledger_.release(me_, kDayOne + seconds(60));
  EXPECT_EQ(ledger_.status()->nextAttempt, kDayOne + seconds(60));
  EXPECT_FALSE(ledger_.claim(at(me_, 59)));
  batch = ledger_.claim(at(me_, 59, true));
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->failedAttempts, 1);
  ledger_.complete(me_, batch->ids);
  EXPECT_EQ(ledger_.status()->count, 0u);
  EXPECT_EQ(ledger_.status()->nextAttempt, std::nullopt);
}

}  // namespace
}  // namespace zelnora_core::detail
