#include "PeerProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

extern char** environ;

namespace zelnora_peers {
namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in loopbackSocketAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool accepts(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return false;
  const sockaddr_in address = loopbackSocketAddress(port);
  const bool connected =
      ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(socket);
  return connected;
}

std::vector<char*> pointersTo(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

pid_t spawn(std::vector<std::string> command, const std::string& logPath) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  // the server starts with no signal blocked or ignored, whatever this process did to its own
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  std::vector<char*> argv = pointersTo(command);
  if (posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ) != 0) pid = -1;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace

int freeLoopbackPort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return -1;
  sockaddr_in address = loopbackSocketAddress(0);
  socklen_t length = sizeof address;
  int port = -1;
  if (::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  ::close(socket);
  return port;
}

std::optional<std::string> findProgram(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::filesystem::path candidate = std::filesystem::path(folder) / name;
    if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate.string();
  }
  return std::nullopt;
}

bool runToCompletion(const std::vector<std::string>& command, const std::string& logPath) {
  const pid_t pid = spawn(command, logPath);
  int status = 0;
  return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

bool PeerProcess::start(const std::vector<std::string>& command, const std::string& logPath,
                        int port, std::chrono::milliseconds limit) {
  if (running()) return false;
  pid_ = spawn(command, logPath);
  const auto deadline = Clock::now() + limit;
  while (running() && !accepts(port)) {
    if (exited() || Clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // a foreign program: no signal
  }
  if (running() && accepts(port)) return true;
  stop();
  return false;
}

bool PeerProcess::exited() {
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return false;
  pid_ = -1;
  return true;
}

void PeerProcess::stop() {
  if (!running()) return;
  ::kill(pid_, SIGTERM);
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  while (!exited() && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!running()) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace zelnora_peers
