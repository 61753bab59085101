// Runs a check in a newly started copy of the test binary, for behaviour that is fixed once per
// process (the cached base URLs): a death test in "threadsafe" style re-executes the binary, so the
// child starts with nothing cached. The child reports mismatches on standard error and exits 1.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace zelnora_core::testing {

class ChildChecks {
 public:
  template <typename Actual, typename Expected>
  void equal(const Actual& actual, const Expected& expected, const std::string& what) {
    if (actual == expected) return;
    std::ostringstream out;
    out << what << ": got [" << actual << "] want [" << expected << "]\n";
    failures_ += out.str();
  }
  void check(bool ok, const std::string& what) {
    if (!ok) failures_ += what + "\n";
  }
  // Ends the child without running static destructors (the URL session's worker may be busy).
  [[noreturn]] void finish() const {
    std::fflush(stdout);
    if (!failures_.empty()) std::fputs(failures_.c_str(), stderr);
    std::_Exit(failures_.empty() ? 0 : 1);
  }

 private:
  std::string failures_;
};

}  // namespace zelnora_core::testing

// `statement` runs in a fresh process and must end with `checks.finish()`.
#define ZELNORA_EXPECT_IN_FRESH_PROCESS(statement)            \
  do {                                                        \
    GTEST_FLAG_SET(death_test_style, "threadsafe");           \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(0), ""); \
  } while (false)
