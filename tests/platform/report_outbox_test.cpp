// The SQLite report outbox: bounds drop the oldest, a lease keeps a batch to one owner, back-off
// holds claims back, and a damaged file is set aside instead of failing every report.
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/ReportOutbox.h"
#include "support/TempDirectory.h"

namespace {

using platform::Bytes;
using platform::OutboxLimits;

constexpr double kDay = 24 * 3600.0;
constexpr const char* kGroup = "group.com.example.za";
// A live process that is not this one (init), and one that cannot exist (beyond any pid_max).
const std::string kLiveOther = "1:other";
const std::string kDeadOther = "2147483647:gone";

class ReportOutboxTest : public testing::Test {
 protected:
  std::shared_ptr<platform::ReportOutbox> open() { return store_->outbox(kGroup); }
  std::vector<std::string> claimAll(platform::ReportOutbox& outbox, const std::string& owner) {
    std::vector<std::string> texts;
    if (auto batch = outbox.claim(owner, 100 * kDay, 120, 1000, 1 << 30, true)) {
      for (const Bytes& report : batch->reports) texts.push_back(platform::toString(report));
    }
    return texts;
  }

  const std::string me_ = platform::outboxOwnerName();
  test_support::TempDirectory scratch_;
  std::unique_ptr<platform::ReportOutboxStore> store_ =
      platform::makeSqliteReportOutboxStore(scratch_.path());
};

struct BoundCase {
  const char* name;
  OutboxLimits limits;
  std::vector<std::pair<std::string, double>> reports;  // text, kept at (days)
  std::size_t dropped;
  std::vector<std::string> left;
};

TEST_F(ReportOutboxTest, BoundsDropTheOldestReportsAndCountThem) {
  const BoundCase cases[] = {
      {"count",
       {3, 1 << 20, 7 * kDay},
       {{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}, {"e", 1}},
       2,
       {"c", "d", "e"}},
      {"bytes", {100, 5, 7 * kDay}, {{"aa", 1}, {"bb", 1}, {"ccc", 1}}, 1, {"bb", "ccc"}},
      {"age",
       {100, 1 << 20, 7 * kDay},
       {{"old", 1}, {"week", 2.5}, {"new", 9}},
       1,
       {"week", "new"}},
  };
  for (const BoundCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(scratch_.path() + "/" + kGroup + ".outbox.db");
    store_ = platform::makeSqliteReportOutboxStore(scratch_.path());
    auto outbox = open();
    ASSERT_TRUE(outbox);
    std::size_t dropped = 0;
    for (const auto& [text, day] : c.reports) {
      dropped += outbox->append(platform::toBytes(text), day * kDay, c.limits, 0).value_or(99);
    }
    EXPECT_EQ(dropped, c.dropped);
    EXPECT_EQ(claimAll(*outbox, me_), c.left);
  }
}

TEST_F(ReportOutboxTest, ALeaseKeepsABatchToOneOwnerUntilItEndsOrItsProcessIsGone) {
  auto outbox = open();
  for (const char* text : {"r1", "r2", "r3"}) outbox->append(platform::toBytes(text), 0, {}, 0);

  ASSERT_TRUE(outbox->claim(kDeadOther, 1, 120, 2, 1 << 20, false));
  auto mine = outbox->claim(me_, 2, 120, 2, 1 << 20, false);
  ASSERT_TRUE(mine) << "a lease of a process that is gone still held";
  EXPECT_EQ(mine->reports.size(), 2u);
  EXPECT_FALSE(outbox->claim(kLiveOther, 3, 120, 50, 1 << 20, true)) << "claimed under a lease";

  outbox->complete(kLiveOther, {});  // not the holder: ends nothing
  EXPECT_FALSE(outbox->claim(kLiveOther, 4, 120, 50, 1 << 20, true));
  outbox->complete(me_, mine->ids);
  auto rest = outbox->claim(kLiveOther, 5, 120, 50, 1 << 20, false);
  ASSERT_TRUE(rest);
  EXPECT_EQ(rest->reports, std::vector<Bytes>{platform::toBytes("r3")});
}

TEST_F(ReportOutboxTest, AFailedAttemptHoldsClaimsBackAndCountsTheFailure) {
  auto outbox = open();
  outbox->append(platform::toBytes("r1"), 0, {}, 0);
  outbox->release(me_, 0);  // not the lease holder: changes nothing
  auto batch = outbox->claim(me_, 1, 120, 50, 1 << 20, false);
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->failedAttempts, 0);
  outbox->release(me_, 60);
  EXPECT_EQ(outbox->status().nextAttempt, 60);
  EXPECT_FALSE(outbox->claim(me_, 59, 120, 50, 1 << 20, false));
  batch = outbox->claim(me_, 59, 120, 50, 1 << 20, true);
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->failedAttempts, 1);
  outbox->complete(me_, batch->ids);
  EXPECT_EQ(outbox->status().count, 0u);
  EXPECT_EQ(outbox->status().nextAttempt, 0);
}

// Each way a file can fail to be a sound outbox: it must be set aside (never followed, never
// written through) and a fresh, private file must keep reports from then on.
TEST_F(ReportOutboxTest, AnUnsoundOutboxFileIsSetAsideAndAFreshOneKeepsReports) {
  const std::string path = scratch_.path() + "/" + kGroup + ".outbox.db";
  const std::string linkTarget = scratch_.write("notes.txt", "not a database");
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"not a database", [&] { std::ofstream(path, std::ios::binary) << std::string(8192, 'x'); }},
      {"schema format number damaged",
       [&] {
         store_->outbox(kGroup)->append(platform::toBytes("old"), 0, {}, 0);
         store_ = platform::makeSqliteReportOutboxStore(scratch_.path());  // closes the file
         std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
         file.seekp(44);
         file.write("\x00\x00\x00\x63", 4);
       }},
      {"symbolic link to a text file", [&] { std::filesystem::create_symlink(linkTarget, path); }},
  };
  for (const auto& [name, damage] : cases) {
    SCOPED_TRACE(name);
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.path())) {
      if (entry.path() != linkTarget) std::filesystem::remove(entry.path());
    }
    store_ = platform::makeSqliteReportOutboxStore(scratch_.path());
    damage();
    store_ = platform::makeSqliteReportOutboxStore(scratch_.path());
    auto outbox = open();
    ASSERT_TRUE(outbox);
    EXPECT_EQ(outbox->append(platform::toBytes("kept"), 0, {}, 0), 0u);
    EXPECT_EQ(outbox->status().count, 1u);
    bool setAside = false;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.path())) {
      setAside |=
          entry.path().filename().string().starts_with(std::string(kGroup) + ".outbox.db.corrupt-");
    }
    EXPECT_TRUE(setAside);
    EXPECT_EQ(std::filesystem::symlink_status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::ifstream target(linkTarget);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(target), {}), "not a database");
  }
}

}  // namespace
