// Short fault runs of zelnora-load, reports from two threads against the reference service in each
// fault mode (a stalling peer gets 1 s time-outs): whatever the peer does, every report completes
// exactly once and the run ends.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"

namespace {

TEST(FaultRuns, EveryReportCompletesExactlyOnceWhateverThePeerDoes) {
  for (const std::string mode :
       {"none", "reset", "close-mid-body", "stall", "garbage-status", "huge-body", "slow-drip"}) {
    std::vector<std::string> arguments{"--reports", "20", "--threads", "2", "--fault", mode};
    if (mode == "stall") arguments.insert(arguments.end(), {"--timeout", "1"});
    const auto run = zelnora_tools_testing::runChild(
        zelnora_tools_testing::toolsDirectory() + "/load/zelnora-load", arguments);
    ASSERT_EQ(run.exitStatus, 0) << mode << ": " << run.standardError;
    std::map<std::string, std::string> summary;  // the key=value words of the last line
    const std::string& errors = run.standardError;
    std::istringstream words(
        errors.substr(std::min(errors.rfind("zelnora-load: "), errors.size())));
    for (std::string word; words >> word;) {
      if (auto equals = word.find('='); equals != std::string::npos) {
        summary[word.substr(0, equals)] = word.substr(equals + 1);
      }
    }
    EXPECT_EQ(summary["report.settled"] + summary["tracking.settled"], "truetrue") << mode;
    EXPECT_EQ(summary["tracking.exactly_once"], "20") << mode;
    EXPECT_EQ(summary["consistent"], "true") << mode;
    if (mode == "none" || mode == "slow-drip") {
      EXPECT_EQ(summary["report.received"], "20") << mode << ": nothing retried, nothing lost";
    }
  }
}

}  // namespace
