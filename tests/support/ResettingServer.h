// A loopback TCP listener that reads the head of what each client sends, then closes the connection
// with a reset (SO_LINGER 0) without answering.
#pragma once

#include <atomic>
#include <string>

#include "support/RawSocketServer.h"

namespace test_support {

class ResettingServer {
 public:
  int port() const { return server_.port(); }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port()); }
  int connections() const { return connections_; }

 private:
  std::atomic<int> connections_{0};
  RawSocketServer server_{[this](RawSocketServer::Connection& connection) {
    ++connections_;
    connection.readRequestHead();
    connection.reset();
  }};
};

}  // namespace test_support
