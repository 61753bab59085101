// The SQLite preferences suite: typed values, removal, private files, damaged files, and what
// other connections, threads and processes see.
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::string_literals;
using Entries = std::map<std::string, PropertyValue>;

constexpr const char* kSuite = "group.com.example.host.za";

std::shared_ptr<UserDefaultsSuite> openSuite(const std::string& directory) {
  return makeSqliteUserDefaultsStore(directory)->suite(kSuite);
}

// Runs `body` in a forked child and returns its pid; the child exits 0 when `body` returns true.
template <typename Body>
pid_t forkChild(Body body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? 0 : 1);
  return child;
}

bool exitedCleanly(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(UserDefaultsSuite, KeepsTypesReplacesWholeAndRemoves) {
  test_support::TempDirectory dir;
  auto suite = openSuite(dir.path());
  const Entries values = {
      {"json", toBytes(R"({"nt":"a"})")},
      {"hexText", "68656c6c6f"},
      {"headers", makeStringDictionary({{"X-One", "1"}, {"X-Two", "caf\xc3\xa9"}})},
      {"empties", PropertyArray{Bytes{}, "", makeStringDictionary({})}},
      {"numbers", PropertyArray{std::int64_t{1} << 50, 2.75, false, PropertyDate{12.5}}}};
  for (const auto& [key, value] : values) suite->set(key, value);
  for (const auto& [key, value] : values) EXPECT_EQ(suite->object(key), value) << key;
  EXPECT_EQ(openSuite(dir.path())->dictionaryRepresentation(), values) << "another connection";
  suite->set("headers", makeStringDictionary({{"c", "3"}}));
  EXPECT_EQ(suite->object("headers"), makeStringDictionary({{"c", "3"}})) << "replaced whole";
  suite->set("hexText", "\xff\xfe"s);  // no property-list text for it: the old value stays
  EXPECT_EQ(suite->object("hexText"), PropertyValue("68656c6c6f"));
  suite->remove("headers");
  suite->remove("never-written");
  EXPECT_FALSE(suite->object("headers"));
  EXPECT_EQ(suite->dictionaryRepresentation().size(), values.size() - 1);
}

TEST(UserDefaultsStore, SuitesAreNamedSafelyKeptPrivateAndSurviveDamage) {
  test_support::TempDirectory dir;
  const mode_t previous = ::umask(0);
  const std::string container = dir.file("data/zelnora/app-groups");
  auto store = makeSqliteUserDefaultsStore(container);
  auto suite = store->suite("private");
  ::umask(previous);
  suite->set("k", "v");
  EXPECT_EQ(store->suite("private"), suite);
  EXPECT_FALSE(store->suite("other")->object("k"));
  struct stat info {};
  for (const std::string& path :
       {dir.file("data"), dir.file("data/zelnora"), container, container + "/private.sqlite",
        container + "/private.sqlite-wal", container + "/private.sqlite-shm"}) {
    EXPECT_EQ(::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0,
              path.find(".sqlite") == std::string::npos ? 0700u : 0600u)
        << path;
  }
  for (const std::string& unsafe :
       {""s, "/"s, "a/b"s, ".."s, "."s, "a\0b"s, std::string(300, 'n')}) {
    EXPECT_EQ(store->suite(unsafe), nullptr) << unsafe;
  }
  EXPECT_NE(store->suite("with space \xc3\xa9"), nullptr);
  EXPECT_EQ(makeSqliteUserDefaultsStore(dir.write("file", "x") + "/groups")->suite("s"), nullptr);
  dir.write("text.sqlite", "this is not a database at all");
  EXPECT_EQ(makeSqliteUserDefaultsStore(dir.path())->suite("text"), nullptr);

  // A stored value that no longer decodes reads as absent and hides no other.
  openSuite(dir.path())->set("damaged", "value");
  openSuite(dir.path())->set("intact", "other");
  const std::string database = dir.file(std::string(kSuite) + ".sqlite");
  std::ifstream in(database, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_NE(content.find("bplist00Uvalue"), std::string::npos);
  content.replace(content.find("bplist00Uvalue"), 8, "bplistXX");
  std::ofstream(database, std::ios::binary | std::ios::trunc) << content;
  EXPECT_EQ(openSuite(dir.path())->dictionaryRepresentation(), (Entries{{"intact", "other"}}));
}

// The suite answers repeated reads from memory; a write by another process (here a forked child
// using the very suite object it inherited) must be read at once all the same.
TEST(UserDefaultsSuite, AnotherProcessesWritesAreSeenAtOnce) {
  test_support::TempDirectory dir;
  auto suite = openSuite(dir.path());
  suite->set("ZA_USER_DATA", "parent");
  ASSERT_EQ(suite->object("ZA_USER_DATA"), PropertyValue("parent"));
  EXPECT_TRUE(exitedCleanly(forkChild([&] {
    const bool sawParent = suite->object("ZA_USER_DATA") == PropertyValue("parent");
    suite->set("ZA_USER_DATA", toBytes("child"));
    return sawParent;
  })));
  EXPECT_EQ(suite->object("ZA_USER_DATA"), PropertyValue(toBytes("child")));
  EXPECT_TRUE(exitedCleanly(forkChild([&] {
    openSuite(dir.path())->remove("ZA_USER_DATA");
    return true;
  })));
  EXPECT_FALSE(suite->object("ZA_USER_DATA"));
}

// Writers on two connections (as host and extension hold) lose no write, and a reader never goes
// back to an older value than one it has seen.
TEST(UserDefaultsConcurrency, WritersLoseNothingAndReadersNeverGoBack) {
  test_support::TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto reader = openSuite(dir.path());
  constexpr std::int64_t kWrites = 300;
  std::atomic<int> writing{3};
  std::vector<std::thread> writers;
  for (int t = 0; t < 3; ++t) {
    writers.emplace_back([&, t] {
      auto suite = t == 2 ? openSuite(dir.path()) : store->suite(kSuite);
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
    wentBack += number != nullptr && *number < last;
    last = number != nullptr ? *number : last;
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(wentBack, 0);
  EXPECT_EQ(reader->object("counter"), PropertyValue(kWrites));
  EXPECT_EQ(reader->dictionaryRepresentation().size(), std::size_t{3 * kWrites + 1});
}

}  // namespace
}  // namespace platform
