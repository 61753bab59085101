// Starts this test program again as a child process that runs one test only: for tests that need
// a second process (another writer of a suite, one to kill) running the same code.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

extern char** environ;

namespace test_support {

// The child's pid, or -1 when it could not be started. The child runs only `testName`
// ("Suite.Test"), sees this process's environment plus `variables` ("NAME=value"), does not
// inherit the descriptors in `notInherited` (the parent's ends of pipes), and its own test output
// goes to /dev/null.
inline pid_t spawnTestInChild(const std::string& testName,
                              const std::vector<std::string>& variables,
                              std::initializer_list<int> notInherited = {}) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
  environment.insert(environment.end(), variables.begin(), variables.end());
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string program = "/proc/self/exe";
  std::string filter = "--gtest_filter=" + testName;
  char* argv[] = {program.data(), filter.data(), nullptr};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int fd : notInherited) posix_spawn_file_actions_addclose(&actions, fd);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int spawned = ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  return spawned == 0 ? child : -1;
}

}  // namespace test_support
