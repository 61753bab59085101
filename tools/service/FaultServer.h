// The reference service's misbehaving twin: a raw-socket loopback server that reads each request
// like the real service, records it, then answers wrongly in one chosen way (reset, truncated
// body, stall, garbage, huge body, slow drip), so that the kit's handling of broken peers can be
// exercised by the load tool and the tests.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/internal/ThreadAnnotations.h"

namespace zelnora_tools {

struct RecordedRequest;

enum class FaultMode {
  none,           // answer normally (the HTTP server is used instead of this one)
  reset,          // read the request, then close with a TCP reset instead of answering
  closeMidBody,   // send headers announcing a body, half of it, then close
  stall,          // read the request and never answer (until the client gives up)
  garbageStatus,  // answer with a line that is not an HTTP status line, then close
  hugeBody,       // answer 200 with a 1 GiB body, past the URL session's memory guard
  slowDrip,       // answer 200 normally, one byte every `dripInterval`
};

// "reset", "close-mid-body", "stall", "garbage-status", "huge-body", "slow-drip" (and "none").
std::optional<FaultMode> faultModeNamed(std::string_view name);
std::string_view faultModeName(FaultMode mode);

struct FaultServerOptions {
  FaultMode mode = FaultMode::reset;
  int port = 0;  // 0: any free port
  std::chrono::milliseconds dripInterval{1};
  std::size_t hugeBodyBytes = std::size_t{1} << 30;
};

class FaultServer {
 public:
  using RequestObserver = std::function<void(const RecordedRequest&)>;

  // `observer` sees every request read (on a connection thread).
  FaultServer(FaultServerOptions options, RequestObserver observer);
  ~FaultServer();  // stops
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  // Binds 127.0.0.1 and accepts on a background thread. The port, or -1 when it cannot bind.
  int start();
  // Wakes every connection (stalled ones included), closes them and joins all threads.
  void stop();

 private:
  struct ConnectionThread;

  void acceptLoop();
  void serve(int fd);
  void reapFinished();

  FaultServerOptions options_;
  RequestObserver observer_;
  int listener_ = -1;
  int stopPipe_[2] = {-1, -1};
  std::thread acceptor_;
  platform::Mutex mutex_;
  std::list<std::unique_ptr<ConnectionThread>> connections_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace zelnora_tools
