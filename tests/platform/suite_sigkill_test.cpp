// The SQLite suite under SIGKILL: two processes write one suite while the test kills them at
// random moments and restarts them. Every write a process saw return must survive, and the suite
// must still open with every value readable.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "support/ChildTest.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using test_support::TempDirectory;

constexpr const char* kDirectoryVariable = "ZELNORA_TEST_KILLED_WRITER_DIR";
constexpr const char* kNameVariable = "ZELNORA_TEST_KILLED_WRITER_NAME";
constexpr const char* kFirstVariable = "ZELNORA_TEST_KILLED_WRITER_FIRST";
constexpr const char* kProgressFdVariable = "ZELNORA_TEST_KILLED_WRITER_FD";
constexpr const char* kSuiteName = "group.com.example.host.killed";
constexpr int kWritesPerWriter = 1000;
constexpr int kKillsPerWriter = 3;

std::string keyFor(const std::string& writer, int i) { return writer + "." + std::to_string(i); }
Bytes bytesFor(const std::string& writer, int i) {
  const std::string text = writer + " wrote " + std::to_string(i);
  return Bytes(text.begin(), text.end());
}
PropertyDictionary dictionaryFor(const std::string& writer, int i) {
  return {{"writer", writer}, {"index", std::to_string(i)}};
}

// Runs only as a child of the test below: writes its keys from `first` on, and after each `set`
// returns sends the index through the progress pipe. Every tenth write also replaces a key both
// writers share, so the two processes contend for the same rows too.
TEST(SuiteUnderSigkill, WriterProcess) {
  const char* directory = std::getenv(kDirectoryVariable);
  const char* name = std::getenv(kNameVariable);
  const char* first = std::getenv(kFirstVariable);
  const char* progressFd = std::getenv(kProgressFdVariable);
  if (!directory || !name || !first || !progressFd) GTEST_SKIP() << "runs as a child process";
  auto suite = makeSqliteUserDefaultsStore(directory)->suite(kSuiteName);
  ASSERT_NE(suite, nullptr);
  const int fd = std::atoi(progressFd);
  for (std::int32_t i = std::atoi(first); i < kWritesPerWriter; ++i) {
    suite->set(keyFor(name, i), bytesFor(name, i));
    if (i % 10 == 0) suite->set("shared", dictionaryFor(name, i));
    ASSERT_EQ(::write(fd, &i, sizeof i), static_cast<ssize_t>(sizeof i));
  }
}

class Writer {
 public:
  Writer(std::string name, std::string directory)
      : name_(std::move(name)), directory_(std::move(directory)) {}

  const std::string& name() const { return name_; }
  int lastReported() const { return lastReported_; }
  bool running() const { return pid_ > 0; }

  // Starts a process that resumes after the last write reported so far.
  void start() {
    int progress[2];
    ASSERT_EQ(::pipe(progress), 0);
    pid_ = test_support::spawnTestInChild(
        "SuiteUnderSigkill.WriterProcess",
        {std::string(kDirectoryVariable) + "=" + directory_,
         std::string(kNameVariable) + "=" + name_,
         std::string(kFirstVariable) + "=" + std::to_string(lastReported_ + 1),
         std::string(kProgressFdVariable) + "=" + std::to_string(progress[1])},
        {progress[0]});
    ::close(progress[1]);
    ASSERT_GT(pid_, 0);
    progressFd_ = progress[0];
  }

  // Reads progress until `count` more writes were reported (or the process ended).
  void awaitWrites(int count) {
    for (int seen = 0; seen < count && readOne();) ++seen;
  }

  // Kills the process wherever it is, then collects what it reported before dying.
  void kill() {
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0))
        << name_ << " ended with status " << status;
    pid_ = -1;
    drain();
  }

  // Lets the process finish its writes; true when it exited normally.
  bool finish() {
    drain();
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  bool readOne() {
    std::int32_t index = 0;
    std::size_t got = 0;
    while (got < sizeof index) {
      const ssize_t n =
          ::read(progressFd_, reinterpret_cast<char*>(&index) + got, sizeof index - got);
      if (n <= 0) return false;
      got += static_cast<std::size_t>(n);
    }
    EXPECT_EQ(index, lastReported_ + 1) << name_ << " reported out of order";
    lastReported_ = index;
    return true;
  }

  void drain() {
    while (readOne()) {
    }
    ::close(progressFd_);
    progressFd_ = -1;
  }

  std::string name_;
  std::string directory_;
  pid_t pid_ = -1;
  int progressFd_ = -1;
  int lastReported_ = -1;
};

TEST(SuiteUnderSigkill, ReportedWritesSurviveKilledWriters) {
  TempDirectory dir;
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::array<Writer, 2> writers{Writer("first", dir.path()), Writer("second", dir.path())};
  for (Writer& writer : writers) writer.start();

  // Alternate victims; each dies after a random number of its writes plus a random delay, so the
  // kill lands anywhere inside a write: mid-transaction, mid-checkpoint, waiting for the lock.
  for (int round = 0; round < 2 * kKillsPerWriter; ++round) {
    Writer& victim = writers[round % 2];
    victim.awaitWrites(std::uniform_int_distribution<int>(20, 150)(random));
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 400)(random)));
    victim.kill();
    victim.start();
  }
  for (Writer& writer : writers) EXPECT_TRUE(writer.finish()) << writer.name();

  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite(kSuiteName);
  ASSERT_NE(suite, nullptr) << "the suite no longer opens";
  const auto entries = suite->dictionaryRepresentation();
  for (const auto& [key, value] : entries) {
    const auto read = suite->object(key);
    ASSERT_TRUE(read.has_value()) << key << " does not decode";
    EXPECT_EQ(*read, value) << key;
  }
  for (const Writer& writer : writers) {
    EXPECT_EQ(writer.lastReported(), kWritesPerWriter - 1) << writer.name();
    for (int i = 0; i <= writer.lastReported(); ++i) {
      const auto found = entries.find(keyFor(writer.name(), i));
      ASSERT_NE(found, entries.end()) << keyFor(writer.name(), i) << " was reported but is lost";
      EXPECT_EQ(found->second, PropertyValue(bytesFor(writer.name(), i)));
    }
  }
  const auto shared = entries.find("shared");
  ASSERT_NE(shared, entries.end());
  ASSERT_NE(shared->second.dictionary(), nullptr);
  EXPECT_EQ(entries.size(), 2u * kWritesPerWriter + 1);
}

}  // namespace
}  // namespace platform
