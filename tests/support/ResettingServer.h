// A loopback TCP listener that reads what each client sends first, then closes the connection with
// a reset (SO_LINGER 0) without answering.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/LoopbackSocket.h"

namespace test_support {

class ResettingServer {
 public:
  ResettingServer() : listener_(bindLoopback(64)) {
    thread_ = std::thread([this] { acceptLoop(); });
  }
  ~ResettingServer() {
    stopping_ = true;
    ::shutdown(listener_.fd, SHUT_RDWR);  // wakes the accept loop
    thread_.join();
    ::close(listener_.fd);
  }
  ResettingServer(const ResettingServer&) = delete;
  ResettingServer& operator=(const ResettingServer&) = delete;

  int port() const { return listener_.port; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(listener_.port); }
  int connections() const { return connections_; }

 private:
  void acceptLoop() {
    while (!stopping_) {
      const int client = ::accept(listener_.fd, nullptr, nullptr);
      if (client < 0) return;
      ++connections_;
      char buffer[8192];
      (void)::recv(client, buffer, sizeof buffer, 0);
      const linger reset{1, 0};
      ::setsockopt(client, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      ::close(client);
    }
  }

  LoopbackSocket listener_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace test_support
