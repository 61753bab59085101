// The main of every test program. It gives the program a home and data folder of its own (ctest
// runs one test per process), so that nothing a test or a tool it starts writes lands in the real
// ~/.local/share, and removes it at the end. `PROGRAM --child NAME` runs a registered child entry
// instead of the tests (see ChildProcess.h).
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/ChildProcess.h"

namespace test_support {

static std::map<std::string, ChildEntry>& childEntries() {
  static std::map<std::string, ChildEntry> entries;
  return entries;
}

bool registerChildEntry(const char* name, ChildEntry entry) {
  return childEntries().emplace(name, entry).second;
}

}  // namespace test_support

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--child") {
    const auto entry = test_support::childEntries().find(argv[2]);
    return entry == test_support::childEntries().end() ? 2 : entry->second();
  }
  // Processes this one starts (tools, death tests) inherit the private folders.
  std::optional<test_support::TempDirectory> home;
  if (std::getenv("ZELNORA_TEST_PRIVATE_HOME") == nullptr) {
    home.emplace();
    ::setenv("ZELNORA_TEST_PRIVATE_HOME", home->path().c_str(), 1);
    ::setenv("HOME", home->path().c_str(), 1);
    ::setenv("XDG_DATA_HOME", home->subdirectory(".local/share").c_str(), 1);
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
