#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

extern char** environ;

namespace zelnora_tools_testing {
namespace {

std::vector<std::string> childEnvironment(const ChildOptions& options) {
  std::map<std::string, std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string text = *entry;
    auto equals = text.find('=');
    if (equals != std::string::npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& [name, value] : options.environment) {
    if (value) {
      variables[name] = *value;
    } else {
      variables.erase(name);
    }
  }
  std::vector<std::string> entries;
  for (const auto& [name, value] : variables) entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Feeds `input` to `inputFd` and drains both output pipes until the child closes them.
void exchange(int inputFd, const std::string& input, int outFd, int errFd, ChildResult& result) {
  std::size_t written = 0;
  if (input.empty()) {
    ::close(inputFd);
    inputFd = -1;
  }
  std::string* sinks[] = {&result.standardOutput, &result.standardError};
  int open[] = {outFd, errFd};
  while (open[0] >= 0 || open[1] >= 0 || inputFd >= 0) {
    pollfd fds[3] = {{open[0], POLLIN, 0}, {open[1], POLLIN, 0}, {inputFd, POLLOUT, 0}};
    if (::poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (open[i] < 0 || fds[i].revents == 0) continue;
      char buffer[65536];
      ssize_t n = ::read(open[i], buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(open[i]);
        open[i] = -1;
      }
    }
    if (inputFd >= 0 && fds[2].revents != 0) {
      ssize_t n = ::write(inputFd, input.data() + written, input.size() - written);
      if (n > 0) written += static_cast<std::size_t>(n);
      if (n < 0 || written == input.size()) {
        ::close(inputFd);
        inputFd = -1;
      }
    }
  }
}

}  // namespace

ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options) {
  ChildResult result;
  int in[2], out[2], err[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);

  std::vector<std::string> argvTexts{program};
  argvTexts.insert(argvTexts.end(), arguments.begin(), arguments.end());
  std::vector<std::string> envTexts = childEnvironment(options);
  auto argv = pointersTo(argvTexts);
  auto envp = pointersTo(envTexts);

  pid_t pid = -1;
  int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  if (spawned != 0) {
    ::close(in[1]);
    ::close(out[0]);
    ::close(err[0]);
    result.standardError = "cannot start " + program + ": " + std::strerror(spawned);
    return result;
  }
  // A child that stops reading its input must not kill the test with SIGPIPE.
  ::signal(SIGPIPE, SIG_IGN);
  exchange(in[1], options.standardInput, out[0], err[0], result);

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exitedNormally = true;
    result.exitStatus = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.terminatingSignal = WTERMSIG(status);
  }
  return result;
}

std::string toolsDirectory() {
  if (const char* directory = std::getenv("ZELNORA_TEST_TOOLS_DIR")) return directory;
  // Run outside CTest: the tools sit beside the tests folder of the build tree.
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools")
      .string();
}

}  // namespace zelnora_tools_testing
