// The SQLite preferences suite: typed values, removal, private files, damaged files, and what
// other connections, threads and processes (forked, or killed mid-write) see.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::string_literals;
using test_support::TempDirectory;
using Entries = std::map<std::string, PropertyValue>;

constexpr const char* kSuite = "group.com.example.host.za";

std::shared_ptr<UserDefaultsSuite> openSuite(const std::string& directory) {
  return makeSqliteUserDefaultsStore(directory)->suite(kSuite);
}

mode_t modeOf(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

// Runs `body` in a forked child; true when it returned true there.
bool inChildProcess(const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? 0 : 1);
  int status = 0;
  return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

TEST(UserDefaultsSuite, KeepsTypesReplacesWholeAndRemoves) {
  TempDirectory dir;
  auto suite = openSuite(dir.path());
  ASSERT_NE(suite, nullptr);
  const Entries values = {
      {"json", toBytes(R"({"nt":"a"})")},
      {"hexText", "68656c6c6f"},
      {"headers", makeStringDictionary({{"X-One", "1"}, {"X-Two", "caf\xc3\xa9"}})},
      {"empties", PropertyArray{Bytes{}, "", makeStringDictionary({})}},
      {"numbers", PropertyArray{std::int64_t{1} << 50, 2.75, false, PropertyDate{12.5}}},
  };
  for (const auto& [key, value] : values) suite->set(key, value);
  for (const auto& [key, value] : values) EXPECT_EQ(suite->object(key), value) << key;
  EXPECT_EQ(openSuite(dir.path())->dictionaryRepresentation(), values) << "another connection";

  suite->set("headers", makeStringDictionary({{"c", "3"}}));
  EXPECT_EQ(suite->object("headers"), makeStringDictionary({{"c", "3"}}));
  suite->set("headers", "\xff\xfe"s);  // no property-list text for it: the old value stays
  EXPECT_EQ(suite->object("headers"), makeStringDictionary({{"c", "3"}}));
  suite->remove("headers");
  suite->remove("never-written");
  EXPECT_FALSE(suite->object("headers"));
  EXPECT_EQ(suite->dictionaryRepresentation().size(), values.size() - 1);
}

TEST(UserDefaultsStore, SuitesAreNamedSafelyAndKeptPrivate) {
  TempDirectory dir;
  const mode_t previous = ::umask(0);
  const std::string container = dir.file("data/zelnora/app-groups");
  auto store = makeSqliteUserDefaultsStore(container);
  auto suite = store->suite("private");
  ::umask(previous);
  ASSERT_NE(suite, nullptr);
  suite->set("k", "v");
  EXPECT_EQ(store->suite("private"), suite);
  EXPECT_FALSE(store->suite("other")->object("k"));
  for (const std::string& folder : {dir.file("data"), dir.file("data/zelnora"), container}) {
    EXPECT_EQ(modeOf(folder), 0700u) << folder;
  }
  for (const char* suffix : {"", "-wal", "-shm"}) {
    EXPECT_EQ(modeOf(container + "/private.sqlite" + suffix), 0600u) << suffix;
  }
  for (const std::string& unsafe :
       {""s, "/"s, "a/b"s, ".."s, "."s, "a\0b"s, std::string(300, 'n')}) {
    EXPECT_EQ(store->suite(unsafe), nullptr) << unsafe;
  }
  EXPECT_NE(store->suite("with space \xc3\xa9"), nullptr);
  const std::string plainFile = dir.write("plain-file", "x");
  EXPECT_EQ(makeSqliteUserDefaultsStore(plainFile + "/app-groups")->suite("s"), nullptr);
  EXPECT_EQ(makeSqliteUserDefaultsStore("/proc/self/zelnora-app-groups")->suite("s"), nullptr);
}

TEST(UserDefaultsSuite, DamagedFilesAndRowsDoNotBreakTheSuite) {
  TempDirectory dir;
  dir.write("text.sqlite", "this is not a database at all");
  EXPECT_EQ(makeSqliteUserDefaultsStore(dir.path())->suite("text"), nullptr);
  std::string garbage(8192, '\0');
  for (std::size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7919 % 251);
  dir.write("broken.sqlite", "SQLite format 3" + garbage);
  if (auto broken = makeSqliteUserDefaultsStore(dir.path())->suite("broken")) {
    broken->set("k", "v");
    EXPECT_TRUE(broken->dictionaryRepresentation().empty());
  }
  {
    auto suite = openSuite(dir.path());
    suite->set("damaged", "value");
    suite->set("intact", "other");
  }  // the last connection closes: the log is folded into the database file
  const std::string database = dir.file(std::string(kSuite) + ".sqlite");
  std::ifstream in(database, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::size_t at = content.find("bplist00Uvalue");
  ASSERT_NE(at, std::string::npos);
  content.replace(at, 8, "bplistXX");
  std::ofstream(database, std::ios::binary | std::ios::trunc) << content;
  auto suite = openSuite(dir.path());
  EXPECT_FALSE(suite->object("damaged"));
  EXPECT_EQ(suite->dictionaryRepresentation(), (Entries{{"intact", "other"}}));
}

// The suite answers repeated reads from memory; a write by another process (here a forked child
// using the very suite object it inherited) must be read at once all the same.
TEST(UserDefaultsSuite, AnotherProcessesWritesAreSeenAtOnce) {
  TempDirectory dir;
  auto suite = openSuite(dir.path());
  ASSERT_NE(suite, nullptr);
  suite->set("ZA_USER_DATA", "parent");
  ASSERT_EQ(suite->object("ZA_USER_DATA"), PropertyValue("parent"));
  ASSERT_TRUE(inChildProcess([&] {
    const bool sawParent = suite->object("ZA_USER_DATA") == PropertyValue("parent");
    suite->set("ZA_USER_DATA", toBytes("child"));
    return sawParent;
  }));
  EXPECT_EQ(suite->object("ZA_USER_DATA"), PropertyValue(toBytes("child")));
  ASSERT_TRUE(inChildProcess([&] {
    openSuite(dir.path())->remove("ZA_USER_DATA");
    return true;
  }));
  EXPECT_FALSE(suite->object("ZA_USER_DATA"));
  suite->set("after", "parent still works");
  EXPECT_EQ(suite->object("after"), PropertyValue("parent still works"));
}

// Threads sharing one suite lose no write, and a reader on a second connection never goes back
// to an older value than one it has seen.
TEST(UserDefaultsConcurrency, ThreadsLoseNothingAndReadersNeverGoBack) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto reader = openSuite(dir.path());
  ASSERT_NE(reader, nullptr);
  constexpr std::int64_t kWrites = 300;
  std::atomic<int> writing{3};
  std::vector<std::thread> writers;
  for (int t = 0; t < 3; ++t) {
    writers.emplace_back([&, t] {
      auto suite = store->suite(kSuite);
      for (std::int64_t i = 1; i <= kWrites; ++i) {
        suite->set("thread" + std::to_string(t) + "." + std::to_string(i), i);
        if (t == 0) suite->set("counter", i);
      }
      --writing;
    });
  }
  std::int64_t last = 0, wentBack = 0;
  while (writing > 0) {
    const auto value = reader->object("counter");
    const auto* number = value ? std::get_if<std::int64_t>(&value->value) : nullptr;
    if (number == nullptr) continue;
    if (*number < last) ++wentBack;
    last = *number;
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(wentBack, 0);
  EXPECT_EQ(reader->object("counter"), PropertyValue(kWrites));
  EXPECT_EQ(reader->dictionaryRepresentation().size(), static_cast<std::size_t>(3 * kWrites + 1));
}

// Two processes write one suite while the test kills them at random moments and starts them
// again: every write a process saw return survives, and every stored value still reads.
TEST(UserDefaultsSuite, ReportedWritesSurviveKilledWriters) {
  TempDirectory dir;
  constexpr int kWrites = 600;
  struct Writer {
    std::string name;
    pid_t pid = -1;
    int progress = -1;
    int lastReported = -1;
  };
  const auto start = [&](Writer& writer) {
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    writer.pid = ::fork();
    if (writer.pid == 0) {
      ::close(pipeEnds[0]);
      auto suite = openSuite(dir.path());
      for (std::int32_t i = writer.lastReported + 1; suite && i < kWrites; ++i) {
        suite->set(writer.name + "." + std::to_string(i), toBytes(std::to_string(i)));
        if (i % 10 == 0) suite->set("shared", makeStringDictionary({{"by", writer.name}}));
        if (::write(pipeEnds[1], &i, sizeof i) != sizeof i) break;
      }
      ::_exit(0);
    }
    ::close(pipeEnds[1]);
    writer.progress = pipeEnds[0];
  };
  // Reads reports until `count` more arrived or the writer is gone.
  const auto await = [](Writer& writer, int count) {
    std::int32_t index = 0;
    for (int seen = 0;
         seen < count && ::read(writer.progress, &index, sizeof index) == sizeof index; ++seen) {
      EXPECT_EQ(index, writer.lastReported + 1) << writer.name;
      writer.lastReported = index;
    }
  };
  const auto stop = [&](Writer& writer, bool kill) {
    if (kill) ::kill(writer.pid, SIGKILL);
    await(writer, kWrites);
    ::close(writer.progress);
    ::waitpid(writer.pid, nullptr, 0);
  };
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Writer writers[2] = {{"first"}, {"second"}};
  for (Writer& writer : writers) start(writer);
  for (int round = 0; round < 6; ++round) {
    Writer& victim = writers[round % 2];
    await(victim, std::uniform_int_distribution<int>(10, 120)(random));
    stop(victim, /*kill=*/true);
    start(victim);
  }
  for (Writer& writer : writers) stop(writer, /*kill=*/false);

  auto suite = openSuite(dir.path());
  ASSERT_NE(suite, nullptr) << "the suite no longer opens";
  const Entries entries = suite->dictionaryRepresentation();
  EXPECT_EQ(entries.size(), 2u * kWrites + 1);
  for (const Writer& writer : writers) {
    EXPECT_EQ(writer.lastReported, kWrites - 1) << writer.name;
    for (int i = 0; i <= writer.lastReported; ++i) {
      const auto found = entries.find(writer.name + "." + std::to_string(i));
      ASSERT_NE(found, entries.end()) << writer.name << " " << i << " was reported but is lost";
      EXPECT_EQ(found->second, PropertyValue(toBytes(std::to_string(i))));
    }
  }
}

}  // namespace
}  // namespace platform
