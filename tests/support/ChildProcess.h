// Runs a program as a child process with its own environment and captures what it writes: the
// tools the integration tests drive, or this test program again to run one test in a new process.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDirectory.h"

namespace test_support {

struct ChildResult {
  std::string standardOutput;
  std::string standardError;
  int exitStatus = -1;        // when it exited normally
  int terminatingSignal = 0;  // when it was ended by a signal (abort)
};

// Variables added to (or replacing those of) this process's environment; an absent value removes
// the variable.
using ChildEnvironment = std::map<std::string, std::optional<std::string>>;

// Runs `program` with `arguments` (argv[1..]) and waits for it to end. Through the shell, which
// `exec`s env(1) and env the program, so the status is the program's own; the standard streams
// are files, so there is no pipe to drain.
inline ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                            const ChildEnvironment& environment = {}) {
  const auto quoted = [](const std::string& word) {
    std::string out = "'";
    for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
  };
  const auto contentsOf = [](const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  };
  TempDirectory files;
  std::string command = "exec env", assignments;  // env(1) takes its -u options first
  for (const auto& [name, value] : environment) {
    if (value) assignments += " " + quoted(name + "=" + *value);
    if (!value) command += " -u " + quoted(name);
  }
  command += assignments + " " + quoted(program);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  command += " </dev/null >" + quoted(files.file("out")) + " 2>" + quoted(files.file("err"));
  const int status = std::system(command.c_str());
  ChildResult result{contentsOf(files.file("out")), contentsOf(files.file("err"))};
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.terminatingSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return result;
}

// A part of a test program that must run in a process of its own (a second launch of an app, for
// instance): registered under a name at static initialisation, run by `PROGRAM --child NAME`
// instead of the tests (start it with runChild on /proc/self/exe); its result is the exit status.
// Never a test that skips.
using ChildEntry = int (*)();
bool registerChildEntry(const char* name, ChildEntry entry);  // in TestMain.cpp

// The directory the build puts the tools in: $ZELNORA_TEST_TOOLS_DIR, or the build tree's tools
// folder beside this test program's folder.
inline std::string toolsDirectory() {
  if (const char* directory = std::getenv("ZELNORA_TEST_TOOLS_DIR")) return directory;
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools")
      .string();
}

}  // namespace test_support
