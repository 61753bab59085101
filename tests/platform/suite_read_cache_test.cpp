// The suite answers repeated reads from memory; these tests hold it to reading what is stored
// now, whoever stored it: another connection in this process, another process, or itself.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <variant>

#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using test_support::TempDirectory;

constexpr const char* kSuite = "group.com.example.host.za";

struct TwoConnections {
  TempDirectory dir;
  // Two stores on one directory hold two SQLite connections, as the host and its extension do.
  std::unique_ptr<UserDefaultsStore> hostStore = makeSqliteUserDefaultsStore(dir.path());
  std::unique_ptr<UserDefaultsStore> extensionStore = makeSqliteUserDefaultsStore(dir.path());
  std::shared_ptr<UserDefaultsSuite> host = hostStore->suite(kSuite);
  std::shared_ptr<UserDefaultsSuite> extension = extensionStore->suite(kSuite);
};

TEST(SuiteReadCache, ReadsSeeTheOtherConnectionsChangesAtOnce) {
  TwoConnections suites;
  ASSERT_NE(suites.host, nullptr);
  ASSERT_NE(suites.extension, nullptr);
  UserDefaultsSuite& host = *suites.host;
  UserDefaultsSuite& extension = *suites.extension;

  struct Step {
    const char* what;
    std::function<void()> change;  // made through the extension's connection
    std::optional<PropertyValue> hostReadsUserData;
  };
  const Step steps[] = {
      {"nothing stored yet", [] {}, std::nullopt},
      {"first value", [&] { extension.set("ZA_USER_DATA", toBytes("one")); },
       PropertyValue(toBytes("one"))},
      {"replaced by a value of the same size",
       [&] { extension.set("ZA_USER_DATA", toBytes("two")); }, PropertyValue(toBytes("two"))},
      {"another key written", [&] { extension.set("zelnora_ads_prefs", toBytes("{}")); },
       PropertyValue(toBytes("two"))},
      {"replaced by text", [&] { extension.set("ZA_USER_DATA", "text"); }, PropertyValue("text")},
      {"removed", [&] { extension.remove("ZA_USER_DATA"); }, std::nullopt},
      {"stored again", [&] { extension.set("ZA_USER_DATA", toBytes("three")); },
       PropertyValue(toBytes("three"))},
  };
  for (const Step& step : steps) {
    (void)host.object("ZA_USER_DATA");  // read once before the change, so a stale copy could exist
    step.change();
    EXPECT_EQ(host.object("ZA_USER_DATA"), step.hostReadsUserData) << step.what;
    EXPECT_EQ(host.object("ZA_USER_DATA"), step.hostReadsUserData) << step.what << ", read again";
  }
  EXPECT_EQ(host.object("zelnora_ads_prefs"), PropertyValue(toBytes("{}")));
}

TEST(SuiteReadCache, OwnWritesAreReadBackAtOnce) {
  TempDirectory dir;
  auto suite = makeSqliteUserDefaultsStore(dir.path())->suite(kSuite);
  ASSERT_NE(suite, nullptr);
  for (std::int64_t i = 0; i < 50; ++i) {
    suite->set("counter", i);
    EXPECT_EQ(suite->object("counter"), PropertyValue(i));
    EXPECT_EQ(suite->object("counter"), PropertyValue(i));
  }
  suite->remove("counter");
  EXPECT_FALSE(suite->object("counter").has_value());
}

TEST(SuiteReadCache, ReadsSeeAnotherProcessesWrites) {
  TempDirectory dir;
  auto store = makeSqliteUserDefaultsStore(dir.path());
  auto suite = store->suite(kSuite);
  ASSERT_NE(suite, nullptr);
  suite->set("custom_headers", "before");
  ASSERT_EQ(suite->object("custom_headers"), PropertyValue("before"));

  for (int round = 0; round < 3; ++round) {
    const std::string written = "child round " + std::to_string(round);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto own = makeSqliteUserDefaultsStore(dir.path())->suite(kSuite);
      if (own) own->set("custom_headers", written);
      ::_exit(own ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(suite->object("custom_headers"), PropertyValue(written));
  }
}

// A reader racing a writer on another connection must never go back to an older value, and must
// see the last one once the writer is done.
TEST(SuiteReadCacheConcurrency, ReaderNeverSeesAnOlderValueThanBefore) {
  TwoConnections suites;
  ASSERT_NE(suites.host, nullptr);
  ASSERT_NE(suites.extension, nullptr);
  constexpr std::int64_t kWrites = 400;
  std::atomic<bool> writing{true};
  std::thread writer([&] {
    for (std::int64_t i = 1; i <= kWrites; ++i) suites.extension->set("counter", i);
    writing = false;
  });
  std::int64_t last = 0;
  std::int64_t wentBack = 0;
  while (writing) {
    const std::optional<PropertyValue> value = suites.host->object("counter");
    const auto* number = value ? std::get_if<std::int64_t>(&value->value) : nullptr;
    if (number == nullptr) continue;
    if (*number < last) ++wentBack;
    last = *number;
  }
  writer.join();
  EXPECT_EQ(wentBack, 0);
  EXPECT_EQ(suites.host->object("counter"), PropertyValue(kWrites));
}

}  // namespace
}  // namespace platform
