// A loopback TCP server whose handler scripts each connection byte by byte: for what an HTTP
// library will not do (resets, closes without an answer, garbage status lines, stalls).
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/LoopbackSocket.h"

namespace test_support {

class RawSocketServer {
 public:
  class Connection {
   public:
    Connection(int fd, RawSocketServer& server) : fd_(fd), server_(server) { server_.track(fd_); }
    ~Connection() {
      if (fd_ < 0) return;
      server_.untrack(fd_);
      ::close(fd_);
    }
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
      server_.recordHead(head);
      return head;
    }

    // Reads `count` bytes, or what arrives before the peer closes.
    std::string readExactly(std::size_t count) {
      std::string bytes(count, '\0');
      std::size_t received = 0;
      while (received < count) {
        const ssize_t got = ::recv(fd_, bytes.data() + received, count - received, 0);
        if (got <= 0) break;
        received += static_cast<std::size_t>(got);
      }
      bytes.resize(received);
      return bytes;
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
      server_.untrack(fd_);
      ::close(fd_);
      fd_ = -1;
    }

    // Blocks until the server is released or destroyed: a peer that never answers.
    void waitForRelease() { server_.waitForRelease(); }

   private:
    int fd_;
    RawSocketServer& server_;
  };

  using Handler = std::function<void(Connection&)>;

  explicit RawSocketServer(Handler handler)
      : handler_(std::move(handler)), listener_(bindLoopback(64)) {
    if (::pipe(stopPipe_) != 0) stopPipe_[0] = stopPipe_[1] = -1;
    acceptor_ = std::thread([this] { acceptLoop(); });
  }

  ~RawSocketServer() {
    release();
    [[maybe_unused]] const ssize_t woken = ::write(stopPipe_[1], "x", 1);
    acceptor_.join();
    {
      // A connection the client opened but never used (or keeps idle) would hold its handler
      // in recv for ever: end every open one so the handlers return.
      std::lock_guard lock(mutex_);
      for (const int fd : open_) ::shutdown(fd, SHUT_RDWR);
    }
    for (auto& connection : connections_) connection.join();
    ::close(listener_.fd);
    ::close(stopPipe_[0]);
    ::close(stopPipe_[1]);
  }
  RawSocketServer(const RawSocketServer&) = delete;
  RawSocketServer& operator=(const RawSocketServer&) = delete;

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
      pollfd watched[2] = {{listener_.fd, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
      if (::poll(watched, 2, -1) < 0) continue;
      if (watched[1].revents != 0) return;
      const int fd = ::accept(listener_.fd, nullptr, nullptr);
      if (fd < 0) continue;
      connections_.emplace_back([this, fd] {
        Connection connection(fd, *this);
        handler_(connection);
      });
    }
  }

  void track(int fd) {
    std::lock_guard lock(mutex_);
    open_.push_back(fd);
  }
  void untrack(int fd) {
    std::lock_guard lock(mutex_);
    std::erase(open_, fd);
  }

  void recordHead(const std::string& head) {
    std::lock_guard lock(mutex_);
    heads_.push_back(head);
  }

  void waitForRelease() {
    std::unique_lock lock(mutex_);
    releasedSignal_.wait(lock, [this] { return released_; });
  }

  Handler handler_;
  LoopbackSocket listener_;
  int stopPipe_[2] = {-1, -1};
  std::thread acceptor_;
  std::vector<std::thread> connections_;  // acceptor thread only, until joined
  mutable std::mutex mutex_;
  std::condition_variable releasedSignal_;
  bool released_ = false;           // guarded by mutex_
  std::vector<std::string> heads_;  // guarded by mutex_
  std::vector<int> open_;           // guarded by mutex_: connections not yet closed
};

}  // namespace test_support
