// Runs a program as a child process with its own environment and captures what it writes: for the
// integration tests that drive the real zelnora-host binary.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelnora_tools_testing {

struct ChildResult {
  std::string standardOutput;
  std::string standardError;
  bool exitedNormally = false;  // false: ended by a signal (abort) or could not be started
  int exitStatus = -1;          // when it exited normally
  int terminatingSignal = 0;    // when it was ended by a signal
};

struct ChildOptions {
  // Variables added to (or replacing those of) this process's environment; an absent value
  // removes the variable.
  std::map<std::string, std::optional<std::string>> environment;
  std::string standardInput;  // written to the child's standard input, which is then closed
};

// Runs `program` with `arguments` (argv[1..]) and waits for it to end.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options = {});

// The directory the build puts the tools in: $ZELNORA_TEST_TOOLS_DIR, or the build tree's tools
// folder beside this test program's folder.
std::string toolsDirectory();

}  // namespace zelnora_tools_testing
