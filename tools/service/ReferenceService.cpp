#include "ReferenceService.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <thread>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "LiveView.h"
#include "platform/internal/HttpText.h"

namespace zelnora_tools {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::size_t kWorkerThreads = 64;
constexpr std::chrono::seconds kReadTimeout{2};
constexpr std::string_view kConfigPrefix = "/config/";
constexpr std::string_view kCampaignPrefix = "/campaign/v3/";
// Shorter answers go as they are, as production front ends are set up (nginx's gzip_min_length
// 1000): compressing {"status":"ok"} makes it longer and cost the server library ~0.3 ms, which a
// durable delivery waited for once per batch.
constexpr std::size_t kShortestCompressedAnswer = 1000;

// The server library compresses a body it holds when the client accepts an encoding, but sends
// a body of known length from a provider as it is.
void setAnswerBody(httplib::Response& response, const std::string& body, const char* type) {
  if (body.empty() || body.size() >= kShortestCompressedAnswer) {
    response.set_content(body, type);
    return;
  }
  response.set_content_provider(
      body.size(), type, [body](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        return sink.write(body.data() + offset, length);
      });
}
const std::string kOkBody = R"({"status":"ok"})";

std::string compactJson(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ServiceAnswer jsonAnswer(int status, std::string body) {
  return ServiceAnswer{status, std::move(body), "application/json", {}};
}

ServiceAnswer errorAnswer(int status, std::string_view message) {
  return jsonAnswer(status, compactJson({{"error", message}}));
}

std::optional<KeyAnswer> keyAnswerFromEntry(const nlohmann::json& entry, std::string* error) {
  if (!entry.is_object()) {
    if (error) *error = "each key's entry must be a JSON object";
    return std::nullopt;
  }
  KeyAnswer answer;
  nlohmann::json members = entry;
  if (auto status = members.find("status"); status != members.end()) {
    if (!status->is_number_integer() || *status < 100 || *status > 599) {
      if (error) *error = "\"status\" must be an integer from 100 to 599";
      return std::nullopt;
    }
    answer.status = status->get<int>();
    members.erase(status);
  }
  if (auto body = members.find("body"); body != members.end()) {
    if (!body->is_string()) {
      if (error) *error = "\"body\" must be a string";
      return std::nullopt;
    }
    answer.body = body->get<std::string>();
  } else {
    answer.body = compactJson(members);
  }
  return answer;
}

// The method each known path accepts; empty means any method.
std::optional<std::string_view> methodForPath(std::string_view path) {
  if (path == "/tracker/app" || path == "/tracker" || path == "/tracker/quiz") return "POST";
  if (path == "/v2/register" || path == "/v1/unregister" || path == "/v1/device/callback") {
    return "";
  }
  if (path.starts_with(kConfigPrefix) && path.size() > kConfigPrefix.size()) return "GET";
  if (path.starts_with(kCampaignPrefix) && path.size() > kCampaignPrefix.size()) return "GET";
  return std::nullopt;
}

void writeWhole(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

RecordedRequest recordOf(const httplib::Request& request) {
  RecordedRequest recorded;
  recorded.method = request.method;
  recorded.path = request.path;
  if (auto question = request.target.find('?'); question != std::string::npos) {
    recorded.query = request.target.substr(question + 1);
  }
  for (const auto& [name, value] : request.headers) {
    // The server library adds these for its own bookkeeping; they were not on the wire.
    if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
        name == "LOCAL_PORT") {
      continue;
    }
    recorded.headers.emplace_back(name, value);
  }
  recorded.body = request.body;
  return recorded;
}

}  // namespace

std::optional<KeyRegistry> KeyRegistry::fromJson(std::string_view json, std::string* error) {
  nlohmann::json document = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (document.is_discarded() || !document.is_object()) {
    if (error) *error = "the registry must be one JSON object";
    return std::nullopt;
  }
  auto keys = document.find("keys");
  if (keys == document.end() || !keys->is_object()) {
    if (error) *error = "the registry needs a \"keys\" object";
    return std::nullopt;
  }
  KeyRegistry registry;
  for (const auto& [key, entry] : keys->items()) {
    auto answer = keyAnswerFromEntry(entry, error);
    if (!answer) {
      if (error) *error = "key \"" + key + "\": " + *error;
      return std::nullopt;
    }
    registry.set(key, std::move(*answer));
  }
  return registry;
}

KeyRegistry KeyRegistry::withDemoKey(const std::string& key) {
  KeyRegistry registry;
  registry.set(key, KeyAnswer{200, R"({"nt":"apns","nai":"demo-app","k":false})"});
  return registry;
}

KeyAnswer KeyRegistry::answerFor(const std::string& key) const {
  if (auto found = answers_.find(key); found != answers_.end()) return found->second;
  return KeyAnswer{401, R"({"error":"unknown application key"})"};
}

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const auto& [field, value] : headers) {
    if (platform::http::equalsIgnoringCase(field, name)) return value;
  }
  return std::nullopt;
}

std::string RecordedRequest::toJsonLine() const {
  nlohmann::json headerList = nlohmann::json::array();
  for (const auto& [name, value] : headers) headerList.push_back({name, value});
  nlohmann::ordered_json line;
  line["method"] = method;
  line["path"] = path;
  line["query"] = query;
  line["headers"] = std::move(headerList);
  line["body"] = body;
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ServiceAnswer answerRequest(const RecordedRequest& request, const KeyRegistry& registry) {
  auto method = methodForPath(request.path);
  if (!method) return errorAnswer(404, "no such path");
  if (!method->empty() && *method != request.method) return errorAnswer(405, "method not allowed");
  std::string_view path = request.path;
  if (path.starts_with(kConfigPrefix)) {
    KeyAnswer answer = registry.answerFor(std::string(path.substr(kConfigPrefix.size())));
    return jsonAnswer(answer.status, std::move(answer.body));
  }
  if (path.starts_with(kCampaignPrefix)) {
    nlohmann::ordered_json campaign;
    campaign["zoneId"] = std::string(path.substr(kCampaignPrefix.size()));
    campaign["campaigns"] = nlohmann::json::array();
    return jsonAnswer(200, campaign.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  }
  return jsonAnswer(200, kOkBody);
}

ReferenceService::ReferenceService(ReferenceServiceOptions options)
    : options_(std::move(options)),
      server_(std::make_unique<httplib::Server>()),
      registry_(options_.registry),
      failsLeft_(options_.failFirst),
      failStatus_(options_.failStatus),
      retryAfterSeconds_(options_.retryAfterSeconds) {}

ReferenceService::~ReferenceService() { stop(); }

int ReferenceService::start() {
  if (serverThread_.joinable() || faultServer_) return -1;
  {
    platform::MutexLock lock(mutex_);
    downUntil_ = std::chrono::steady_clock::now() + options_.downFor;
  }
  if (options_.fault != FaultMode::none) return startFaultServer();
  server_->set_payload_max_length(options_.maxBodyBytes);
  // The server library's default also sets SO_REUSEPORT, which would let a second service share a
  // port that is in use; a port given on the command line must be ours alone.
  int listener = -1;
  server_->set_socket_options([&listener](socket_t sock) {
    listener = sock;
    int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  // The server library writes an answer's head and body separately; with Nagle's algorithm the
  // body then waits for the client's delayed ACK (40 ms), which capped a load run at ~280
  // requests/s over 8 connections.
  server_->set_tcp_nodelay(true);
  // Short keep-alive so that stop() does not wait long on idle client connections.
  server_->set_keep_alive_timeout(1);
  // Each connection holds one worker for as long as its client dawdles: with the library's 8
  // workers and 5 s read time-out, 16 clients stopped half-way through a request head kept a
  // normal request waiting 10 s. Many more workers than a test or load run opens connections,
  // and a short read time-out, keep the service answering.
  server_->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  server_->set_read_timeout(kReadTimeout);
  // The server library closes a connection after 5 requests by default, which made a client
  // open a new connection for every fifth report; a production front end allows far more.
  server_->set_keep_alive_max_count(1000);
  auto route = [this](const httplib::Request& request, httplib::Response& response) {
    ServiceAnswer answer;
    handle(recordOf(request), answer);
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    setAnswerBody(response, answer.body, answer.contentType.c_str());
  };
  if (options_.inspector) {
    inspector_ = std::make_unique<Inspector>(*this);
    inspector_->install(*server_);
  }
  server_->Get(".*", route);
  server_->Post(".*", route);
  server_->Put(".*", route);
  server_->Delete(".*", route);
  server_->Patch(".*", route);
  server_->Options(".*", route);

  if (options_.port == 0) {
    port_ = server_->bind_to_any_port(kLoopback);
  } else {
    port_ = server_->bind_to_port(kLoopback, options_.port) ? options_.port : -1;
  }
  if (port_ <= 0) {
    port_ = -1;
    return -1;
  }
  // The server library listens with a backlog of 5: a client opening its 8 connections at once
  // could see a SYN dropped and wait a second for the retransmission. Listening again on the same
  // socket only raises the backlog.
  if (listener >= 0) ::listen(listener, SOMAXCONN);
  server_->set_socket_options([](socket_t) {});
  serverThread_ = std::thread([this] { server_->listen_after_bind(); });
  // The server library's stop() does nothing until its loop has marked itself running; a stop()
  // that came earlier would leave the thread blocked in accept() for good.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!server_->is_running() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  return port_;
}

int ReferenceService::startFaultServer() {
  FaultServerOptions faultOptions;
  faultOptions.mode = options_.fault;
  faultOptions.port = options_.port;
  faultOptions.dripInterval = options_.dripInterval;
  faultServer_ = std::make_unique<FaultServer>(
      faultOptions, [this](const RecordedRequest& request) { record(request); });
  port_ = faultServer_->start();
  return port_;
}

void ReferenceService::stop() {
  if (faultServer_) faultServer_->stop();
  if (!serverThread_.joinable()) return;
  if (inspector_) inspector_->shutdown();
  server_->stop();
  serverThread_.join();
}

std::string ReferenceService::baseUrl() const {
  return std::string("http://") + kLoopback + ":" + std::to_string(port_);
}

void ReferenceService::setKeyAnswer(const std::string& key, KeyAnswer answer) {
  platform::MutexLock lock(mutex_);
  registry_.set(key, std::move(answer));
}

std::map<std::string, KeyAnswer> ReferenceService::keyAnswers() const {
  platform::MutexLock lock(mutex_);
  return registry_.entries();
}

void ReferenceService::stageOutage(const Outage& outage) {
  platform::MutexLock lock(mutex_);
  failsLeft_ = outage.failNext;
  downUntil_ = std::chrono::steady_clock::now() + outage.downFor;
  failStatus_ = outage.failStatus;
  retryAfterSeconds_ = outage.retryAfterSeconds;
}

Outage ReferenceService::outage() const {
  platform::MutexLock lock(mutex_);
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      downUntil_ - std::chrono::steady_clock::now());
  return Outage{failsLeft_, std::max(left, std::chrono::milliseconds(0)), failStatus_,
                retryAfterSeconds_};
}

std::vector<RecordedRequest> ReferenceService::received() const {
  platform::MutexLock lock(mutex_);
  return received_;
}

std::size_t ReferenceService::receivedCount() const {
  platform::MutexLock lock(mutex_);
  return receivedCount_;
}

bool ReferenceService::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  platform::MutexLock lock(mutex_);
  return platform::waitUntil(receivedChanged_, mutex_, deadline,
                             [&]() ZELNORA_REQUIRES(mutex_) { return receivedCount_ >= count; });
}

void ReferenceService::handle(const RecordedRequest& request, ServiceAnswer& answer) {
  {
    platform::MutexLock lock(mutex_);
    if (failsForOutage(request)) {
      answer = errorAnswer(failStatus_, "service unavailable");
      if (retryAfterSeconds_) {
        answer.headers.emplace_back("Retry-After", std::to_string(*retryAfterSeconds_));
      }
    } else {
      answer = answerRequest(request, registry_);
    }
  }
  record(request);
  if (inspector_) inspector_->requestAnswered(request, answer.status);
  if (request.path.starts_with(kConfigPrefix)) {
    std::this_thread::sleep_for(options_.configurationDelay);
  }
}

bool ReferenceService::failsForOutage(const RecordedRequest& request) {
  if (!request.path.starts_with("/tracker")) return false;
  const bool fails = failsLeft_ > 0 || std::chrono::steady_clock::now() < downUntil_;
  if (failsLeft_ > 0) --failsLeft_;
  return fails;
}

void ReferenceService::record(const RecordedRequest& request) {
  const bool writesLine = options_.printRequests || !options_.requestLogPath.empty();
  const std::string line = writesLine ? request.toJsonLine() + "\n" : std::string();
  {
    platform::MutexLock lock(mutex_);
    ++receivedCount_;
    if (!options_.requestLogPath.empty()) {
      std::ofstream log(options_.requestLogPath, std::ios::app | std::ios::binary);
      log << line;
    }
    if (options_.printRequests) writeWhole(STDOUT_FILENO, line);
    if (options_.keepRequests) received_.push_back(request);
  }
  receivedChanged_.notify_all();
}

namespace {

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void blockStopSignals() {
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  (void)signal(SIGPIPE, SIG_IGN);
}

int waitForStopSignal() {
  const sigset_t set = stopSignals();
  int received = 0;
  sigwait(&set, &received);
  return received;
}

}  // namespace zelnora_tools
