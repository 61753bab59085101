#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
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

constexpr const char* kWriterDirectoryVariable = "ZELNORA_TEST_DEFAULTS_WRITER_DIR";
constexpr const char* kWriterReadyFdVariable = "ZELNORA_TEST_DEFAULTS_READY_FD";
constexpr const char* kSharedSuite = "group.com.example.host.za";
constexpr int kWritesPerProcess = 500;

mode_t modeOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return 0;
  return info.st_mode & 07777;
}

std::string keyFor(std::string_view writer, int i) {
  return std::string(writer) + "." + std::to_string(i);
}

void writeKeys(UserDefaultsSuite& suite, std::string_view writer) {
  for (int i = 0; i < kWritesPerProcess; ++i) {
    suite.set(keyFor(writer, i), toBytes(std::string(writer) + " wrote " + std::to_string(i)));
  }
}

TEST(UserDefaultsSuite, ValuesKeepTheirTypes) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto suite = store->suite("group.com.example.za");
  ASSERT_NE(suite, nullptr);
  const PropertyValue values[] = {
      PropertyValue(toBytes(R"({"nt":"a","nai":"b"})")),
      PropertyValue("AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE"),
      makeStringDictionary({{"X-One", "1"}, {"X-Two", "caf\xc3\xa9"}}),
      makeStringDictionary({}),
      PropertyValue(Bytes{}),
      PropertyValue(""),
      PropertyValue(PropertyArray{std::int64_t{-3}, 2.75, true, PropertyDate{12.5}}),
      PropertyValue(std::int64_t{1} << 50),
      PropertyValue(false),
  };
  for (std::size_t i = 0; i < std::size(values); ++i) {
    const std::string key = "key" + std::to_string(i);
    suite->set(key, values[i]);
    EXPECT_EQ(suite->object(key), values[i]) << key;
  }
  // A second store on the same container reads what the first wrote, types intact.
  auto other = makeSqliteUserDefaultsStore(dir.path())->suite("group.com.example.za");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->dictionaryRepresentation().size(), std::size(values));
  EXPECT_EQ(other->object("key0"), values[0]);
  EXPECT_EQ(other->object("key2"), values[2]);
}

TEST(UserDefaultsSuite, TextIsNeverReadAsDataNorDataAsText) {
  TempDirectory dir;
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("types");
  ASSERT_NE(suite, nullptr);
  suite->set("text", "68656c6c6f");
  suite->set("bytes", toBytes("hello"));
  suite->set("headers", makeStringDictionary({{"a", "b"}}));
  const auto text = suite->object("text");
  ASSERT_TRUE(text.has_value());
  EXPECT_EQ(text->data(), nullptr);
  EXPECT_EQ(text->dictionary(), nullptr);
  const auto bytes = suite->object("bytes");
  ASSERT_TRUE(bytes.has_value());
  EXPECT_EQ(bytes->string(), nullptr);
  EXPECT_EQ(*bytes->data(), toBytes("hello"));
  const auto headers = suite->object("headers");
  ASSERT_TRUE(headers.has_value());
  EXPECT_EQ(headers->data(), nullptr);
  EXPECT_EQ(asStringDictionary(*headers), (std::map<std::string, std::string>{{"a", "b"}}));
  EXPECT_FALSE(asStringDictionary(*bytes).has_value());
  EXPECT_FALSE(suite->object("never-written").has_value());
}

TEST(UserDefaultsSuite, SetReplacesWholeAndRemoveDeletes) {
  TempDirectory dir;
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("replace");
  ASSERT_NE(suite, nullptr);
  suite->set("headers", makeStringDictionary({{"a", "1"}, {"b", "2"}}));
  suite->set("headers", makeStringDictionary({{"c", "3"}}));
  EXPECT_EQ(suite->object("headers"), makeStringDictionary({{"c", "3"}}));
  suite->set("headers", toBytes("now data"));
  EXPECT_EQ(suite->object("headers"), PropertyValue(toBytes("now data")));
  suite->set("kept", "yes");
  suite->remove("headers");
  suite->remove("absent-key");
  EXPECT_FALSE(suite->object("headers").has_value());
  EXPECT_EQ(suite->dictionaryRepresentation(),
            (std::map<std::string, PropertyValue>{{"kept", PropertyValue("yes")}}));
}

TEST(UserDefaultsSuite, ValuesThatCannotBeStoredLeaveTheOldValue) {
  TempDirectory dir;
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("unstorable");
  ASSERT_NE(suite, nullptr);
  suite->set("key", "before");
  suite->set("key", std::string("\xff\xfe"));  // not UTF-8: no property-list text for it
  EXPECT_EQ(suite->object("key"), PropertyValue("before"));
}

TEST(UserDefaultsStore, SameSuiteNameGivesTheSameSuite) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto first = store->suite("one");
  EXPECT_EQ(store->suite("one"), first);
  auto second = store->suite("two");
  ASSERT_NE(second, nullptr);
  first->set("k", "in one");
  EXPECT_FALSE(second->object("k").has_value());
}

TEST(UserDefaultsStore, UnsafeSuiteNamesAreRefused) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  const std::string unsafe[] = {
      "", "/", "a/b", "..", ".", "../escape", std::string("a\0b", 3), std::string(300, 'n')};
  for (const std::string& name : unsafe) {
    EXPECT_EQ(store->suite(name), nullptr) << name;
  }
  EXPECT_NE(store->suite("group.com.example.host.za"), nullptr);
  EXPECT_NE(store->suite("with space \xc3\xa9"), nullptr);
}

TEST(UserDefaultsStore, ContainerAndFilesArePrivateWhateverTheUmask) {
  TempDirectory dir;
  const mode_t previous = ::umask(0);
  const std::string container = dir.file("data/zelnora/app-groups");
  auto suite = makeSqliteUserDefaultsStore(container)->suite("private");
  ::umask(previous);
  ASSERT_NE(suite, nullptr);
  suite->set("k", "v");
  for (const std::string& folder : {dir.file("data"), dir.file("data/zelnora"), container}) {
    EXPECT_EQ(modeOf(folder), 0700u) << folder;
  }
  const std::string database = container + "/private.sqlite";
  for (const std::string& file : {database, database + "-wal", database + "-shm"}) {
    EXPECT_EQ(modeOf(file), 0600u) << file;
  }
}

TEST(UserDefaultsStore, ContainerThatCannotBeCreatedGivesNoSuite) {
  TempDirectory dir;
  const std::string notADirectory = dir.write("plain-file", "x");
  EXPECT_EQ(makeSqliteUserDefaultsStore(notADirectory + "/app-groups")->suite("s"), nullptr);
  EXPECT_EQ(makeSqliteUserDefaultsStore(notADirectory)->suite("s"), nullptr);
  EXPECT_EQ(makeSqliteUserDefaultsStore("/proc/self/zelnora-app-groups")->suite("s"), nullptr);
  if (::geteuid() != 0) {  // root writes into read-only directories anyway
    const std::string readOnly = dir.file("read-only");
    ASSERT_EQ(::mkdir(readOnly.c_str(), 0500), 0);
    EXPECT_EQ(makeSqliteUserDefaultsStore(readOnly)->suite("s"), nullptr);
  }
}

TEST(UserDefaultsStore, CorruptedDatabaseFileDoesNotCrash) {
  TempDirectory dir;
  std::string garbage(8192, '\0');
  for (std::size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7919 % 251);
  dir.write("broken.sqlite", "SQLite format 3" + garbage);
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("broken");
  if (suite != nullptr) {
    suite->set("k", "v");
    suite->remove("k");
    EXPECT_TRUE(suite->dictionaryRepresentation().empty());
    EXPECT_FALSE(suite->object("k").has_value());
  }
  dir.write("text.sqlite", "this is not a database at all");
  EXPECT_EQ(makeSqliteUserDefaultsStore(dir.path())->suite("text"), nullptr);
}

// Replaces the first `from` in the file by `to` (same length); false when it is not there.
bool patchFile(const std::string& path, std::string_view from, std::string_view to) {
  std::ifstream in(path, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::size_t at = content.find(from);
  if (at == std::string::npos) return false;
  content.replace(at, from.size(), to);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
  return true;
}

TEST(UserDefaultsSuite, RowThatDoesNotDecodeReadsAsAbsentAndStays) {
  TempDirectory dir;
  const std::string database = dir.file("damaged.sqlite");
  {
    auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("damaged");
    ASSERT_NE(suite, nullptr);
    suite->set("damaged", "value");
    suite->set("intact", "other");
  }  // the last connection closes: the log is folded into the database file
  ASSERT_TRUE(patchFile(database, "bplist00Uvalue", "bplistXXUvalue"));
  {
    auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("damaged");
    ASSERT_NE(suite, nullptr);
    EXPECT_FALSE(suite->object("damaged").has_value());
    EXPECT_EQ(suite->dictionaryRepresentation(),
              (std::map<std::string, PropertyValue>{{"intact", PropertyValue("other")}}));
  }
  ASSERT_TRUE(patchFile(database, "bplistXXUvalue", "bplist00Uvalue"));
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite("damaged");
  ASSERT_NE(suite, nullptr);
  EXPECT_EQ(suite->object("damaged"), PropertyValue("value"));
}

TEST(UserDefaultsConcurrency, ThreadsWritingOneSuiteLoseNothing) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&store, t] {
      auto suite = store->suite(kSharedSuite);
      if (suite == nullptr) return;
      for (int i = 0; i < 100; ++i)
        suite->set(keyFor("thread" + std::to_string(t), i), std::int64_t{i});
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(store->suite(kSharedSuite)->dictionaryRepresentation().size(), 400u);
}

// Runs only as the second process of the test below.
TEST(UserDefaultsConcurrency, SecondProcessWriter) {
  const char* directory = std::getenv(kWriterDirectoryVariable);
  const char* readyFd = std::getenv(kWriterReadyFdVariable);
  if (directory == nullptr || readyFd == nullptr) GTEST_SKIP() << "runs as a child process only";
  auto suite = makeSqliteUserDefaultsStore(directory)->suite(kSharedSuite);
  ASSERT_NE(suite, nullptr);
  const int fd = std::atoi(readyFd);
  ASSERT_EQ(::write(fd, "r", 1), 1);
  ::close(fd);
  writeKeys(*suite, "child");
}

TEST(UserDefaultsConcurrency, TwoProcessesWritingAtOnceLoseNothing) {
  TempDirectory dir;
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = test_support::spawnTestInChild(
      "UserDefaultsConcurrency.SecondProcessWriter",
      {std::string(kWriterDirectoryVariable) + "=" + dir.path(),
       std::string(kWriterReadyFdVariable) + "=" + std::to_string(ready[1])},
      {ready[0]});
  ASSERT_GT(child, 0);
  ::close(ready[1]);

  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite(kSharedSuite);
  ASSERT_NE(suite, nullptr);
  char signal = 0;
  ASSERT_EQ(::read(ready[0], &signal, 1), 1) << "the child never opened the suite";
  ::close(ready[0]);
  writeKeys(*suite, "parent");
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  const auto entries = suite->dictionaryRepresentation();
  EXPECT_EQ(entries.size(), 2u * kWritesPerProcess);
  for (const std::string writer : {"parent", "child"}) {
    for (int i = 0; i < kWritesPerProcess; ++i) {
      const auto found = entries.find(keyFor(writer, i));
      ASSERT_NE(found, entries.end()) << keyFor(writer, i);
      EXPECT_EQ(found->second, PropertyValue(toBytes(writer + " wrote " + std::to_string(i))));
    }
  }
}

TEST(UserDefaultsFork, ChildProcessOpensItsOwnConnection) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto suite = store->suite("forked");
  ASSERT_NE(suite, nullptr);
  suite->set("before", "parent");
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    auto again = store->suite("forked");
    bool ok = again != nullptr && again->object("before") == PropertyValue("parent");
    if (again) again->set("child", "was here");
    ::_exit(ok ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(suite->object("child"), PropertyValue("was here"));
  suite->set("after", "parent still works");
  EXPECT_EQ(suite->object("after"), PropertyValue("parent still works"));
}

}  // namespace
}  // namespace platform
