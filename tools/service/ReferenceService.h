// A loopback HTTP server that answers like the kit's service and records every request it gets:
// used by the demo, the integration tests, the benchmarks and the `zelnora-service` executable.
//
// Paths it answers (any other path: 404):
//   GET  /config/{key}            the configuration endpoint; the host bundle's INIT_CONFIG is
//                                 "http://127.0.0.1:PORT/config/{key}". Answers from the key
//                                 registry.
//   POST /tracker/app, /tracker, /tracker/quiz        200 {"status":"ok"}
//   GET  /campaign/v3/{zoneId}                         200 {"zoneId":"<zoneId>","campaigns":[]}
//   any  /v2/register, /v1/unregister, /v1/device/callback   200 {"status":"ok"}
// A known path asked with another method answers 405. Bodies above `maxBodyBytes` are refused by
// the server library with 413 before any handler runs (such requests are not recorded).
//
// Key registry (JSON):
//   {"keys": {"demo-key": {"nt": "apns", "nai": "demo-app", "k": false},
//             "boom":     {"status": 500},
//             "junk":     {"body": "not json"}}}
// An entry's "status" (default 200) is the answer's status; its "body", when present, is sent as it
// stands; otherwise the body is the entry's other members as compact JSON
// ({"nt":..,"nai":..,"k":..}). A key that is not in the registry answers 401 {"error":"unknown
// application key"}.
//
// With `inspector` set, "/" also serves a live view of what arrives and of the registry, which it
// can change (LiveView.h); its own requests are not recorded.
//
// With a fault mode (FaultServer.h) a raw-socket server takes the HTTP server's place: it reads and
// records every request the same way, then answers it wrongly in that one way, on every path.
//
// Recorded requests are JSON lines:
//   {"method":"POST","path":"/tracker/app","query":"a=1","headers":[["Accept","*/*"],...],"body":"..."}
// Headers come in the order the server library keeps them (by name, case-insensitively; a
// repeated field in arrival order). A body that is not UTF-8 is written with U+FFFD replacements.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "FaultServer.h"
#include "platform/internal/ThreadAnnotations.h"

namespace httplib {
class Server;
}

namespace zelnora_tools {

// What the configuration endpoint answers for one key.
struct KeyAnswer {
  int status = 200;
  std::string body;

  bool operator==(const KeyAnswer&) const = default;
};

// The per-key answers of the configuration endpoint.
class KeyRegistry {
 public:
  // Parses the registry format above; absent (with `error` filled when given) on malformed input.
  static std::optional<KeyRegistry> fromJson(std::string_view json, std::string* error = nullptr);
  // A registry with one usable key: {"nt":"apns","nai":"demo-app","k":false}.
  static KeyRegistry withDemoKey(const std::string& key);

  void set(const std::string& key, KeyAnswer answer) { answers_[key] = std::move(answer); }
  const std::map<std::string, KeyAnswer>& entries() const { return answers_; }
  // The answer for `key`: its entry, or 401 for an unknown key.
  KeyAnswer answerFor(const std::string& key) const;

 private:
  std::map<std::string, KeyAnswer> answers_;
};

struct RecordedRequest {
  std::string method;
  std::string path;
  std::string query;  // the raw query text after "?", empty when there is none
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  // The value of the first header named `name` (compared without regard to case).
  std::optional<std::string> header(std::string_view name) const;
  // The compact JSON line described above (without the line feed).
  std::string toJsonLine() const;
};

// The answer to one request.
struct ServiceAnswer {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;  // beyond the framing and type
};

// Routes one request to its answer (pure: the registry is the only input besides the request).
ServiceAnswer answerRequest(const RecordedRequest& request, const KeyRegistry& registry);

struct ReferenceServiceOptions {
  KeyRegistry registry;
  int port = 0;                // 0: any free port
  std::string requestLogPath;  // append one JSON line per request; empty: no file
  bool printRequests = false;  // also write each JSON line to standard output
  std::size_t maxBodyBytes = 16 * 1024 * 1024;
  FaultMode fault = FaultMode::none;
  std::chrono::milliseconds dripInterval{1};  // slow-drip: the pause between answer bytes
  // False: requests are only counted (`receivedCount`), not kept, so that long load runs keep
  // the service's memory flat; `received()` is then empty.
  bool keepRequests = true;
  // An outage of the tracking endpoints, to show reports kept and delivered later: the first
  // `failFirst` tracking requests, and every one within `downFor` of start(), answer
  // `failStatus` (they are still recorded), with `Retry-After: retryAfterSeconds` when set.
  std::size_t failFirst = 0;
  std::chrono::milliseconds downFor{0};
  int failStatus = 503;
  std::optional<long long> retryAfterSeconds;
  // Holds each configuration answer this long after recording its request, so that a test sees
  // what a client sends before the answer arrives.
  std::chrono::milliseconds configurationDelay{0};
  // Serve the live inspector page and its routes (LiveView.h); ignored in a fault mode.
  bool inspector = false;
};

// An outage of the tracking endpoints staged while the service runs, or what is left of one.
struct Outage {
  std::size_t failNext = 0;              // tracking requests still to fail
  std::chrono::milliseconds downFor{0};  // from now
  int failStatus = 503;
  std::optional<long long> retryAfterSeconds;
};

class Inspector;

class ReferenceService {
 public:
  explicit ReferenceService(ReferenceServiceOptions options);
  ~ReferenceService();  // stops the server
  ReferenceService(const ReferenceService&) = delete;
  ReferenceService& operator=(const ReferenceService&) = delete;

  // Binds 127.0.0.1 and serves on a background thread; connections are accepted once it returns.
  // The bound port, or -1 when the port cannot be bound (or the service was already started).
  int start();
  // Stops serving and joins the server thread. Idempotent.
  void stop();

  int port() const { return port_; }
  // "http://127.0.0.1:PORT"
  std::string baseUrl() const;

  // Replaces the answer for one key while the service runs. Any thread.
  void setKeyAnswer(const std::string& key, KeyAnswer answer);

  // Every key's answer. Any thread.
  std::map<std::string, KeyAnswer> keyAnswers() const;
  // Replaces the outage (the options' failFirst/downFor/failStatus/retryAfterSeconds), from now.
  void stageOutage(const Outage& outage);
  // What is left of the outage now. Any thread.
  Outage outage() const;

  // Every request received so far, in arrival order. Any thread.
  std::vector<RecordedRequest> received() const;
  // How many requests were received so far (kept or not). Any thread.
  std::size_t receivedCount() const;
  // Waits until at least `count` requests were received or `limit` passed; true when they were.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

 private:
  int startFaultServer();
  void handle(const RecordedRequest& request, ServiceAnswer& answer);
  bool failsForOutage(const RecordedRequest& request) ZELNORA_REQUIRES(mutex_);
  void record(const RecordedRequest& request);

  ReferenceServiceOptions options_;
  std::unique_ptr<httplib::Server> server_;
  std::unique_ptr<FaultServer> faultServer_;  // instead of server_ when a fault mode is chosen
  std::unique_ptr<Inspector> inspector_;      // with options_.inspector
  std::thread serverThread_;
  int port_ = -1;

  mutable platform::Mutex mutex_;  // also keeps the log file's lines whole
  mutable std::condition_variable_any receivedChanged_;
  KeyRegistry registry_ ZELNORA_GUARDED_BY(mutex_);
  std::vector<RecordedRequest> received_ ZELNORA_GUARDED_BY(mutex_);
  std::size_t receivedCount_ ZELNORA_GUARDED_BY(mutex_) = 0;
  std::size_t failsLeft_ ZELNORA_GUARDED_BY(mutex_) = 0;
  std::chrono::steady_clock::time_point downUntil_ ZELNORA_GUARDED_BY(mutex_);  // set by start()
  int failStatus_ ZELNORA_GUARDED_BY(mutex_) = 503;
  std::optional<long long> retryAfterSeconds_ ZELNORA_GUARDED_BY(mutex_);
};

/// For the programs that run servers until stopped: blocks SIGINT and SIGTERM in this thread and
/// in every thread started after it (a server's threads inherit the mask) and ignores SIGPIPE.
/// Call before starting any server; waitForStopSignal then takes the stop synchronously, so that
/// stopping runs on an ordinary thread.
void blockStopSignals();
/// Waits for SIGINT or SIGTERM (blocked by blockStopSignals) and returns the one that came.
int waitForStopSignal();

}  // namespace zelnora_tools
