// Test servers on 127.0.0.1: a cpp-httplib server that records every request and answers by path,
// and a raw TCP listener that resets every connection once it has read the request.
#pragma once

#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <httplib.h>

namespace zelnora_core::testing {

struct ReceivedRequest {
  std::string method;
  std::string target;                                        // path and query as sent
  std::vector<std::pair<std::string, std::string>> headers;  // without httplib's REMOTE_/LOCAL_
  std::string body;

  std::vector<std::string> values(const std::string& name) const {
    std::vector<std::string> out;
    for (const auto& [key, value] : headers) {
      if (strcasecmp(key.c_str(), name.c_str()) == 0) out.push_back(value);
    }
    return out;
  }
};

// Answers by the end of the path: ".../status/NNN" with status NNN and the bodies below, anything
// else with 200 and {"ok":true} — unless a fixed answer is set for every path.
class RecordingServer {
 public:
  struct Answer {
    int status = 200;
    std::string body;
    bool dropMidBody = false;  // announce the body's length, send part of it, close
  };

  RecordingServer() {
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      record(request);
      std::optional<Answer> fixed;
      {
        std::lock_guard lock(mutex_);
        fixed = fixedAnswer_;
      }
      if (fixed) {
        answerWith(*fixed, response);
      } else {
        answer(request.path, response);
      }
    };
    const std::string any = ".*";
    server_.Get(any, handler);
    server_.Post(any, handler);
    server_.Put(any, handler);
    server_.Delete(any, handler);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~RecordingServer() {
    server_.stop();
    thread_.join();
  }
  RecordingServer(const RecordingServer&) = delete;
  RecordingServer& operator=(const RecordingServer&) = delete;

  int port() const { return port_; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }

  std::vector<ReceivedRequest> received() const {
    std::lock_guard lock(mutex_);
    return received_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    received_.clear();
    fixedAnswer_.reset();
  }
  void answerEveryPathWith(Answer answer) {
    std::lock_guard lock(mutex_);
    fixedAnswer_ = std::move(answer);
  }

 private:
  void record(const httplib::Request& request) {
    ReceivedRequest copy{request.method, request.target, {}, request.body};
    for (const auto& [name, value] : request.headers) {
      if (name.rfind("REMOTE_", 0) == 0 || name.rfind("LOCAL_", 0) == 0) continue;
      copy.headers.emplace_back(name, value);
    }
    std::lock_guard lock(mutex_);
    received_.push_back(std::move(copy));
  }

  static void answer(const std::string& path, httplib::Response& response) {
    const auto marker = path.rfind("/status/");
    if (marker == std::string::npos) {
      response.set_content("{\"ok\":true}", "application/json");
      return;
    }
    response.status = std::stoi(path.substr(marker + 8));
    if (response.status == 404)
      response.set_content("{\"error\":\"not found\"}", "application/json");
    if (response.status == 500) response.set_content("boom", "text/plain");
  }

  static void answerWith(const Answer& fixed, httplib::Response& response) {
    response.status = fixed.status;
    if (!fixed.dropMidBody) {
      response.set_content(fixed.body, "application/json");
      return;
    }
    response.set_content_provider(
        fixed.body.size() + 100, "application/json",
        [body = fixed.body](size_t, size_t, httplib::DataSink& sink) {
          sink.write(body.data(), body.size());
          return false;  // ends the exchange with the announced length unmet
        });
  }

  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<ReceivedRequest> received_;  // guarded by mutex_
  std::optional<Answer> fixedAnswer_;      // guarded by mutex_
};

// Accepts, reads what the client sends first, then closes with a reset (SO_LINGER 0).
class ResettingServer {
 public:
  ResettingServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener_, 64);
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { acceptLoop(); });
  }
  ~ResettingServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  ResettingServer(const ResettingServer&) = delete;
  ResettingServer& operator=(const ResettingServer&) = delete;

  std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int connections() const { return connections_; }

 private:
  void acceptLoop() {
    while (!stopping_) {
      const int client = ::accept(listener_, nullptr, nullptr);
      if (client < 0) return;
      ++connections_;
      char buffer[4096];
      (void)::recv(client, buffer, sizeof buffer, 0);
      linger reset{1, 0};
      ::setsockopt(client, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      ::close(client);
    }
  }

  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

// A loopback port on which nothing listens (bound once, then closed).
inline int refusedPort() {
  const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(probe);
  return ntohs(address.sin_port);
}

}  // namespace zelnora_core::testing
