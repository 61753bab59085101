// Both tools explain themselves: `--help`, `-h` (and the host's `help` command) print the usage
// with the command or option table, an unknown option points to `--help`, and README names every
// command and option as the tools' own tables do.
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ChildProcess.h"

namespace {

using test_support::runChild;
using test_support::toolsDirectory;
using ::testing::HasSubstr;

TEST(ToolHelp, UsageTablesAndUnknownOptions) {
  const struct {
    const char* tool;
    std::vector<std::string> arguments;
    int status;
    const char* says;
  } cases[] = {
      {"host/zelnora-host", {"--help"}, 0, "\n  set-pref KEY data|string|dictionary VALUE\n"},
      {"host/zelnora-host", {"-h"}, 0, "\n  -h, --help\n"},
      {"host/zelnora-host", {"help"}, 0, "\nhost:   flush-outbox\n"},
      {"host/zelnora-host",
       {"--verbose"},
       2,
       "unknown option \"--verbose\"; see zelnora-host --help"},
      {"service/zelnora-service", {"--help"}, 0, "\n  --retry-after SECONDS\n"},
      {"service/zelnora-service", {"-h"}, 0, "\n  --fault reset|close-mid-body|"},
      {"service/zelnora-service", {"--prot", "80"}, 2, "\"--prot\"; see zelnora-service --help"},
  };
  for (const auto& c : cases) {
    const auto run = runChild(toolsDirectory() + "/" + c.tool, c.arguments);
    EXPECT_EQ(run.exitStatus, c.status) << c.tool << " " << c.arguments[0];
    EXPECT_THAT(run.standardOutput + run.standardError, HasSubstr(c.says)) << c.arguments[0];
  }
}

TEST(ToolHelp, ReadmeNamesEveryCommandAndOptionAsTheToolsDo) {
  std::ostringstream readme;
  readme << std::ifstream(ZELNORA_SOURCE_DIR "/README.md").rdbuf();
  for (const char* tool : {"host/zelnora-host", "service/zelnora-service"}) {
    std::istringstream help(runChild(toolsDirectory() + "/" + tool, {"--help"}).standardOutput);
    for (std::string line; std::getline(help, line);) {
      if (!line.starts_with("  ") || line.starts_with("   ") || line.starts_with("  -h")) continue;
      std::string entry = line.substr(2), escaped;  // in a table, "|" is written "\|"
      for (char c : entry) escaped += c == '|' ? "\\|" : std::string(1, c);
      const std::string text = readme.str();
      EXPECT_TRUE(text.find("`" + entry) != std::string::npos ||
                  text.find("`" + escaped) != std::string::npos ||
                  text.find("[" + entry + "]") != std::string::npos)
          << tool << ": README does not name " << entry;
    }
  }
}

}  // namespace
