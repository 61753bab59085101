// A short fault run of zelnora-load: reports from two threads against the reference service that
// resets every connection; every report completes exactly once and the run ends.
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/ChildProcess.h"

namespace {

TEST(FaultRuns, EveryReportCompletesExactlyOnceWhenThePeerResets) {
  const auto run =
      test_support::runChild(test_support::toolsDirectory() + "/load/zelnora-load",
                             {"--reports", "20", "--threads", "2", "--fault", "reset"});
  ASSERT_EQ(run.exitStatus, 0) << run.standardError;
  std::map<std::string, std::string> summary;  // the key=value words of the last line
  std::istringstream words(run.standardError.substr(run.standardError.rfind("zelnora-load: ")));
  for (std::string word; words >> word;) {
    if (auto equals = word.find('='); equals != std::string::npos) {
      summary[word.substr(0, equals)] = word.substr(equals + 1);
    }
  }
  EXPECT_EQ(summary["report.settled"] + summary["tracking.settled"], "truetrue");
  EXPECT_EQ(summary["tracking.exactly_once"], "20");
  EXPECT_EQ(summary["consistent"], "true");
}

}  // namespace
