// A cpp-httplib server on 127.0.0.1 that records every request it gets and answers each with the
// test's responder.
#pragma once

#include <strings.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

namespace test_support {

struct ReceivedRequest {
  std::string method;
  std::string path;  // percent-decoded, without the query
  httplib::Params params;
  httplib::Headers headers;  // names as sent; without httplib's REMOTE_/LOCAL_ entries
  std::string body;

  // Every value of the header `name` (any letter case), in arrival order.
  std::vector<std::string> values(const std::string& name) const {
    std::vector<std::string> out;
    for (const auto& [key, value] : headers) {
      if (strcasecmp(key.c_str(), name.c_str()) == 0) out.push_back(value);
    }
    return out;
  }
};

class RecordingServer {
 public:
  using Responder = std::function<void(const httplib::Request&, httplib::Response&)>;

  // `keepAlive` false: one request per connection, so stopping the server never waits on a
  // connection the client keeps idle.
  explicit RecordingServer(Responder responder, bool keepAlive = true)
      : responder_(std::move(responder)) {
    if (!keepAlive) server_.set_keep_alive_max_count(1);
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      record(request);
      responder_(request, response);
    };
    const std::string any = ".*";
    server_.Get(any, handler).Post(any, handler).Put(any, handler);
    server_.Patch(any, handler).Delete(any, handler).Options(any, handler);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() before the accept loop runs would be lost and leave join() waiting forever.
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~RecordingServer() {
    server_.stop();
    thread_.join();
  }

  int port() const { return port_; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }
  std::string url(const std::string& path) const { return base() + path; }

  std::vector<ReceivedRequest> received() const {
    std::lock_guard lock(mutex_);
    return received_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    received_.clear();
  }

 private:
  void record(const httplib::Request& request) {
    std::lock_guard lock(mutex_);
    ReceivedRequest& copy = received_.emplace_back(
        ReceivedRequest{request.method, request.path, request.params, {}, request.body});
    for (const auto& [name, value] : request.headers) {
      if (!name.starts_with("REMOTE_") && !name.starts_with("LOCAL_"))
        copy.headers.emplace(name, value);
    }
  }

  const Responder responder_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<ReceivedRequest> received_;  // guarded by mutex_
};

}  // namespace test_support
