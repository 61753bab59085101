// A cpp-httplib server on 127.0.0.1 that records every request it gets and answers as the test
// scripts it: one answer for every path, answers for given method and path, else a responder.
#pragma once

#include <strings.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <httplib.h>

namespace test_support {

struct ReceivedRequest {
  std::string method;
  std::string target;  // path and query as sent
  std::string path;    // percent-decoded, without the query
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

struct Answer {
  int status = 200;
  std::string body;
  bool dropMidBody = false;  // announce the body's length, send part of it, close
  std::string contentType = "application/json";
};

struct RecordingServerOptions {
  // False: one request per connection, so stopping the server never waits on a connection the
  // client keeps idle.
  bool keepAlive = true;
  time_t keepAliveTimeoutSeconds = CPPHTTPLIB_KEEPALIVE_TIMEOUT_SECOND;
  std::size_t payloadMaxLength = std::numeric_limits<std::size_t>::max();
};

class RecordingServer {
 public:
  using Answer = test_support::Answer;
  // Answers what no scripted answer covers.
  using Responder = std::function<void(const httplib::Request&, httplib::Response&)>;

  explicit RecordingServer(Responder responder = answerByStatusPath,
                           RecordingServerOptions options = {})
      : responder_(std::move(responder)) {
    if (!options.keepAlive) server_.set_keep_alive_max_count(1);
    server_.set_keep_alive_timeout(options.keepAliveTimeoutSeconds);
    server_.set_payload_max_length(options.payloadMaxLength);
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      respond(request, response);
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
  // Forgets what was received and every scripted answer.
  void clear() {
    std::lock_guard lock(mutex_);
    received_.clear();
    everyPath_.reset();
    byRoute_.clear();
  }
  void answerEveryPathWith(Answer answer) {
    std::lock_guard lock(mutex_);
    everyPath_ = std::move(answer);
  }
  // `path` is matched percent-decoded and without the query.
  void answerPath(const std::string& method, const std::string& path, Answer answer) {
    std::lock_guard lock(mutex_);
    byRoute_[{method, path}] = std::move(answer);
  }

  // ".../status/NNN" with status NNN (404 and 500 with a body), anything else 200 {"ok":true}.
  static void answerByStatusPath(const httplib::Request& request, httplib::Response& response) {
    const auto marker = request.path.rfind("/status/");
    response.status =
        marker == std::string::npos ? 200 : std::stoi(request.path.substr(marker + 8));
    if (response.status == 200) response.set_content("{\"ok\":true}", "application/json");
    if (response.status == 404)
      response.set_content("{\"error\":\"not found\"}", "application/json");
    if (response.status == 500) response.set_content("boom", "text/plain");
  }

 private:
  void respond(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock lock(mutex_);
    ReceivedRequest& copy = received_.emplace_back(ReceivedRequest{
        request.method, request.target, request.path, request.params, {}, request.body});
    for (const auto& [name, value] : request.headers) {
      if (!name.starts_with("REMOTE_") && !name.starts_with("LOCAL_"))
        copy.headers.emplace(name, value);
    }
    auto route = byRoute_.find({request.method, request.path});
    std::optional<Answer> scripted = everyPath_                ? everyPath_
                                     : route != byRoute_.end() ? std::optional(route->second)
                                                               : std::nullopt;
    lock.unlock();
    if (!scripted) return responder_(request, response);
    response.status = scripted->status;
    if (!scripted->dropMidBody) return response.set_content(scripted->body, scripted->contentType);
    // Announces more than it sends: the exchange ends with the length unmet.
    response.set_content_provider(scripted->body.size() + 100, scripted->contentType,
                                  [body = scripted->body](size_t, size_t, httplib::DataSink& sink) {
                                    sink.write(body.data(), body.size());
                                    return false;
                                  });
  }

  const Responder responder_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<ReceivedRequest> received_;                          // guarded by mutex_
  std::optional<Answer> everyPath_;                                // guarded by mutex_
  std::map<std::pair<std::string, std::string>, Answer> byRoute_;  // guarded by mutex_
};

}  // namespace test_support
