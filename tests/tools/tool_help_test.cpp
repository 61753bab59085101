// Both tools explain themselves: `--help`, `-h` (and the host's `help` command) print the usage
// with the command or option table, an unknown option points to `--help`, and README names every
// command and option as the tools' own tables do.
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ChildProcess.h"

namespace {

std::string run(const std::string& tool, const std::vector<std::string>& arguments, int status) {
  const auto run = test_support::runChild(test_support::toolsDirectory() + "/" + tool, arguments);
  EXPECT_EQ(run.exitStatus, status) << tool << " " << arguments[0];
  return run.standardOutput + run.standardError;
}

using ::testing::HasSubstr;

TEST(ToolHelp, UsageTablesUnknownOptionsAndReadme) {
  const std::string host = "host/zelnora-host", service = "service/zelnora-service";
  EXPECT_THAT(run(host, {"-h"}, 0), HasSubstr("\n  set-pref KEY data|string|dictionary VALUE\n"));
  EXPECT_THAT(run(host, {"help"}, 0), HasSubstr("\nhost:   flush-outbox\n"));
  EXPECT_THAT(run(host, {"--verbose"}, 2), HasSubstr("\"--verbose\"; see zelnora-host --help"));
  EXPECT_THAT(run(service, {"-h"}, 0), HasSubstr("\n  --fault reset|close-mid-body|"));
  EXPECT_THAT(run(service, {"--prot"}, 2), HasSubstr("\"--prot\"; see zelnora-service --help"));
  std::ostringstream read;
  read << std::ifstream(ZELNORA_SOURCE_DIR "/README.md").rdbuf();
  std::string readme = read.str();  // with "|" as written in a table, "\|", read as "|"
  for (std::size_t at; (at = readme.find("\\|")) != std::string::npos;) readme.erase(at, 1);
  for (const std::string& tool : {host, service}) {
    std::istringstream help(run(tool, {"--help"}, 0));
    for (std::string line; std::getline(help, line);) {  // "  NAME ARGUMENTS", then its summary
      if (!line.starts_with("  ") || line.starts_with("   ") || line.starts_with("  -h")) continue;
      EXPECT_THAT(readme, ::testing::AnyOf(HasSubstr("`" + line.substr(2)),
                                           HasSubstr("[" + line.substr(2) + "]")))
          << tool << ": README does not name " << line;
    }
  }
}

}  // namespace
