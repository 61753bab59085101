// The main of every test program. It gives the program a home and data folder of its own (ctest
// runs one test per process), so that nothing a test or a tool it starts writes lands in the real
// ~/.local/share, and removes it at the end. `PROGRAM --child NAME` runs a registered child entry
// instead of the tests (see ChildProcess.h).
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/ChildProcess.h"

static std::map<std::string, test_support::ChildEntry>& childEntries() {
  static std::map<std::string, test_support::ChildEntry> entries;
  return entries;
}

bool test_support::registerChildEntry(const char* name, ChildEntry entry) {
  return childEntries().emplace(name, entry).second;
}

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--child")
    return childEntries().contains(argv[2]) ? childEntries()[argv[2]]() : 2;
  std::optional<test_support::TempDirectory> home;  // inherited by processes this one starts
  if (std::getenv("ZELNORA_TEST_PRIVATE_HOME") == nullptr) {
    ::setenv("ZELNORA_TEST_PRIVATE_HOME", home.emplace().path().c_str(), 1);
    ::setenv("HOME", home->path().c_str(), 1);
    ::setenv("XDG_DATA_HOME", home->subdirectory(".local/share").c_str(), 1);
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
