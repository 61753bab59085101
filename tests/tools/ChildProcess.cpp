#include "ChildProcess.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/TempDirectory.h"

namespace zelnora_tools_testing {
namespace {

std::string quoted(const std::string& word) {
  std::string out = "'";
  for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace

// Through the shell, which `exec`s env(1) and env the program: the status is the program's own. The
// standard streams are files, so there is no pipe to drain.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options) {
  test_support::TempDirectory files;
  std::string command = "exec env", assignments;  // env(1) takes its -u options first
  for (const auto& [name, value] : options.environment) {
    if (value) assignments += " " + quoted(name + "=" + *value);
    if (!value) command += " -u " + quoted(name);
  }
  command += assignments + " " + quoted(program);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  command += " <" + quoted(files.write("in", options.standardInput)) + " >" +
             quoted(files.file("out")) + " 2>" + quoted(files.file("err"));
  const int status = std::system(command.c_str());
  ChildResult result{contentsOf(files.file("out")), contentsOf(files.file("err"))};
  result.exitedNormally = WIFEXITED(status);
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.terminatingSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return result;
}

std::string toolsDirectory() {
  if (const char* directory = std::getenv("ZELNORA_TEST_TOOLS_DIR")) return directory;
  // Run outside CTest: the tools sit beside the tests folder of the build tree.
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools")
      .string();
}

}  // namespace zelnora_tools_testing
