// The SQLite report outbox on real files: a file that is not a sound database is set aside
// instead of failing every report, and two processes (one a fork of the other, sharing the
// parent's opened store) never interleave their transactions.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "platform/ReportOutbox.h"
#include "support/TempDirectory.h"

namespace {

using platform::ReportOutboxTransaction;

constexpr const char* kGroup = "group.com.example.za";

class ReportOutboxTest : public testing::Test {
 protected:
  std::shared_ptr<platform::ReportOutbox> open() { return store_->outbox(kGroup); }
  static bool append(platform::ReportOutbox& outbox, const std::string& text) {
    return outbox.transact([&](ReportOutboxTransaction& kept) {
      return kept.append(platform::toBytes(text), std::chrono::system_clock::now());
    });
  }

  test_support::TempDirectory scratch_;
  std::unique_ptr<platform::ReportOutboxStore> store_ =
      platform::makeSqliteReportOutboxStore(scratch_.path());
};

// Each way a file can fail to be a sound outbox: it must be set aside (never followed, never
// written through) and a fresh, private file must keep reports from then on.
TEST_F(ReportOutboxTest, AnUnsoundOutboxFileIsSetAsideAndAFreshOneKeepsReports) {
  const std::string path = scratch_.path() + "/" + kGroup + ".outbox.db";
  const std::string linkTarget = scratch_.write("notes.txt", "not a database");
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"not a database", [&] { std::ofstream(path, std::ios::binary) << std::string(8192, 'x'); }},
      {"schema format number damaged",
       [&] {
         append(*store_->outbox(kGroup), "old");
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
    EXPECT_TRUE(append(*outbox, "kept"));
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

// Both processes read the state, append, and write the state one higher, many times at once: a
// transaction that let the other process in between, or a child that used its parent's
// connection, loses counts or reports.
TEST_F(ReportOutboxTest, TwoProcessesNeverInterleaveTheirTransactions) {
  constexpr int kRounds = 100;
  auto outbox = open();
  ASSERT_TRUE(outbox);
  auto rounds = [&] {
    for (int i = 0; i < kRounds; ++i) {
      outbox->transact([](ReportOutboxTransaction& kept) {
        kept.setState(std::to_string(std::atoi(kept.state().c_str()) + 1));
        return kept.append(platform::toBytes("r"), std::chrono::system_clock::now());
      });
    }
  };
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    rounds();
    ::_exit(0);
  }
  rounds();
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  outbox->transact([&](ReportOutboxTransaction& kept) {
    EXPECT_EQ(kept.state(), std::to_string(2 * kRounds));
    EXPECT_EQ(kept.totals().count, 2u * kRounds);
    return true;
  });
}

}  // namespace
