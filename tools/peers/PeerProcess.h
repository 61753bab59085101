// A real server from the machine's packages (nginx, squid, HAProxy) run as a foreground child of
// this process on a loopback port: started, waited for until it accepts connections, and stopped
// (and reaped) when the value goes away. Used by the real-peers tests and `zelnora-peers`.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace zelnora_peers {

// A loopback port nothing listens on right now (the kernel's choice; free again when returned).
int freeLoopbackPort();

// Where a program is found on PATH or in the system's sbin folders; absent when it is not.
std::optional<std::string> findProgram(const std::string& name);

// Runs `command` (argv, the program by path) and waits for it; standard output and error go to
// `logPath`. True when it exited with status 0.
bool runToCompletion(const std::vector<std::string>& command, const std::string& logPath);

class PeerProcess {
 public:
  PeerProcess() = default;
  ~PeerProcess() { stop(); }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  // Starts `command`, its output appended to `logPath`, and waits until 127.0.0.1:`port` accepts a
  // connection or `limit` passed. False (with the child stopped) when it could not start, ended
  // early, or never listened.
  bool start(const std::vector<std::string>& command, const std::string& logPath, int port,
             std::chrono::milliseconds limit = std::chrono::seconds(15));
  // SIGTERM, then SIGKILL when it has not ended within a few seconds; reaps it. Idempotent.
  void stop();
  bool running() const { return pid_ > 0; }

 private:
  bool exited();
  pid_t pid_ = -1;
};

}  // namespace zelnora_peers
