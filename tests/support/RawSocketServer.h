// A loopback TCP server whose handler scripts each connection byte by byte: for what an HTTP
// library will not do (resets, closes without an answer, garbage status lines, stalls).
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test_support {

// A TCP socket bound to an ephemeral port of 127.0.0.1, listening when `backlog` > 0.
struct LoopbackSocket {
  explicit LoopbackSocket(int backlog) : fd(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    if (backlog > 0) ::listen(fd, backlog);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
  }
  int fd;
  int port = 0;
};

// A loopback port on which nothing listens (bound once, then closed): connecting is refused.
inline int refusedPort() {
  const LoopbackSocket probe(0);
  ::close(probe.fd);
  return probe.port;
}

class RawSocketServer {
 public:
  class Connection {
   public:
    Connection(int fd, RawSocketServer& server) : fd_(fd), server_(server) {
      std::lock_guard lock(server_.mutex_);
      server_.open_.push_back(fd_);
    }
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Reads up to and including the blank line after the headers (less if the peer closes first)
    // and records it in the server's `requestHeads()`.
    std::string readRequestHead() {
      std::string head;
      char byte = 0;
      while (head.find("\r\n\r\n") == std::string::npos && ::recv(fd_, &byte, 1, 0) == 1) {
        head += byte;
      }
      std::lock_guard lock(server_.mutex_);
      server_.heads_.push_back(head);
      return head;
    }

    // Reads `count` bytes, or what arrives before the peer closes.
    std::string readExactly(std::size_t count) {
      std::string bytes(count, '\0');
      std::size_t received = 0;
      for (ssize_t got = 1; received < count && got > 0; received += std::max<ssize_t>(got, 0)) {
        got = ::recv(fd_, bytes.data() + received, count - received, 0);
      }
      return bytes.substr(0, received);
    }

    void send(std::string_view bytes) {
      while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      }
    }

    // Closes with a TCP reset instead of an orderly shutdown.
    void reset() {
      const linger abortive{1, 0};
      ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
      close();
    }

    // Blocks until the server is released or destroyed: a peer that never answers.
    void waitForRelease() { server_.waitForRelease(); }

   private:
    void close() {
      if (fd_ < 0) return;
      std::unique_lock lock(server_.mutex_);
      std::erase(server_.open_, fd_);
      lock.unlock();
      ::close(fd_);
      fd_ = -1;
    }

    int fd_;
    RawSocketServer& server_;
  };

  using Handler = std::function<void(Connection&)>;

  explicit RawSocketServer(Handler handler) : handler_(std::move(handler)), listener_(64) {
    acceptor_ = std::thread([this] { acceptLoop(); });
  }

  ~RawSocketServer() {
    release();
    ::shutdown(listener_.fd, SHUT_RDWR);  // wakes the accept loop
    acceptor_.join();
    {
      // A connection the client opened but never used (or keeps idle) would hold its handler
      // in recv for ever: end every open one so the handlers return.
      std::lock_guard lock(mutex_);
      for (const int fd : open_) ::shutdown(fd, SHUT_RDWR);
    }
    for (auto& connection : connections_) connection.join();
    ::close(listener_.fd);
  }

  int port() const { return listener_.port; }
  std::string url(std::string_view path = "/") const {
    return "http://127.0.0.1:" + std::to_string(listener_.port) + std::string(path);
  }

  // Lets every handler blocked in `waitForRelease` return.
  void release() {
    {
      std::lock_guard lock(mutex_);
      released_ = true;
    }
    releasedSignal_.notify_all();
  }

  std::vector<std::string> requestHeads() const {
    std::lock_guard lock(mutex_);
    return heads_;
  }

 private:
  void acceptLoop() {
    for (;;) {
      const int fd = ::accept(listener_.fd, nullptr, nullptr);
      if (fd < 0) return;  // the listener was shut down
      connections_.emplace_back([this, fd] {
        Connection connection(fd, *this);
        handler_(connection);
      });
    }
  }

  void waitForRelease() {
    std::unique_lock lock(mutex_);
    releasedSignal_.wait(lock, [this] { return released_; });
  }

  Handler handler_;
  LoopbackSocket listener_;
  std::thread acceptor_;
  std::vector<std::thread> connections_;  // acceptor thread only, until joined
  mutable std::mutex mutex_;
  std::condition_variable releasedSignal_;
  bool released_ = false;           // guarded by mutex_
  std::vector<std::string> heads_;  // guarded by mutex_
  std::vector<int> open_;           // guarded by mutex_: connections not yet closed
};

}  // namespace test_support
