// Internal: durable reports (opt-in). Reports whose exchange fails in a way that may pass later are
// kept in the shared outbox on the network thread; one worker thread of the kit delivers them in
// batches, in order, under the outbox's lease, with back-off. Nothing here runs unless enabled.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <optional>
#include <string>

#include "OutboxLedger.h"
#include "OutboxPolicy.h"
#include "platform/internal/ThreadAnnotations.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/ZAReportOutbox.h"

namespace zelnora_core::detail {

class DurableReports {
 public:
  static DurableReports& shared();  // never destroyed: the worker may outlive static destruction

  // `deliveryHeld` says when kept reports must stay kept for now (the service's kill switch).
  void setEnabled(bool enabled, std::function<bool()> deliveryHeld);
  bool isEnabled() const { return enabled_.load(std::memory_order_relaxed); }

  // Sends one event's JSON as a report through the API service's exchange, prints the error of a
  // failure and keeps the event when the failure may pass later. Caller's thread up to the
  // hand-over; keeping happens in the completion, on the network thread.
  void send(platform::Bytes event);
  // Any exchange succeeded: the service is reachable, deliver now (when enabled).
  void noteSuccessfulExchange();
  // Delivers now, ignoring the back-off (when enabled).
  void flush();

  std::optional<ZAReportOutboxStatus> status();
  bool waitUntilSettled(std::chrono::milliseconds limit);

 private:
  DurableReports() = default;
  // `sentAt`, the time of the report's own call, orders kept reports: completions arrive in any
  // order.
  void keep(const platform::Bytes& event, SystemTime sentAt, SystemTime notBefore);
  void wake(bool ignoreBackOff);
  void runWorker();
  void awaitWake() ZELNORA_REQUIRES(mutex_);
  // Delivers due batches until none is left or one fails; when to look again (seconds), if at all.
  std::optional<Seconds> deliverDue(bool ignoreBackOff);

  std::atomic<bool> enabled_{false};
  platform::Mutex mutex_;
  std::condition_variable_any workRequested_;  // the worker waits here, and only the worker
  std::condition_variable_any settled_;        // waitUntilSettled waits here: a round has ended
  bool workerStarted_ ZELNORA_GUARDED_BY(mutex_) = false;
  pid_t workerProcess_ ZELNORA_GUARDED_BY(mutex_) = 0;  // a child of fork() starts its own worker
  bool wakeRequested_ ZELNORA_GUARDED_BY(mutex_) = false;
  bool ignoreBackOff_ ZELNORA_GUARDED_BY(mutex_) = false;
  bool delivering_ ZELNORA_GUARDED_BY(mutex_) = false;
  std::optional<std::chrono::steady_clock::time_point> nextLook_ ZELNORA_GUARDED_BY(mutex_);
  std::function<bool()> deliveryHeld_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace zelnora_core::detail
