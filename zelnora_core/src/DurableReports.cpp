#include "DurableReports.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <system_error>
#include <thread>
#include <utility>

#include "APIServiceDetail.h"
#include "OutboxPolicy.h"
#include "TrafficLog.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace detail {
namespace {

// Longer than a request's 60 s time-out, so a lease never runs out under an exchange in flight.
constexpr double kLeaseSeconds = 120;
// How soon to look again at an outbox that holds reports but gave none (leased elsewhere).
constexpr double kLookAgainSeconds = 1;

// Sends one batch and waits for its outcome (the worker's thread only).
Exchange exchangeAndWait(const APIRequest& request) {
  struct Pending {
    std::mutex mutex;
    std::condition_variable done;
    std::optional<Exchange> result;
  };
  auto pending = std::make_shared<Pending>();
  exchange(request, [pending](Exchange finished) {
    std::lock_guard lock(pending->mutex);
    pending->result.emplace(std::move(finished));
    pending->done.notify_all();
  });
  std::unique_lock lock(pending->mutex);
  pending->done.wait(lock, [&] { return pending->result.has_value(); });
  return std::move(*pending->result);
}

APIRequest trackingRequest(platform::Bytes body) {
  return APIRequest(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt, std::nullopt,
                    std::nullopt, std::move(body));
}

std::shared_ptr<platform::ReportOutbox> sharedOutbox() {
  return platform::reportOutboxes().outbox(ZAPreferencesUtil::appGroupSuiteName());
}

double now() { return platform::clock().timeIntervalSince1970(); }

}  // namespace

DurableReports& DurableReports::shared() {
  static DurableReports* const instance = new DurableReports();
  return *instance;
}

void DurableReports::setEnabled(bool enabled, std::function<bool()> deliveryHeld) {
  static std::once_flag observing;
  std::call_once(observing, [] {
    setExchangeObserver([](const Exchange& exchange) {
      if (!exchange.outcome.error) shared().noteSuccessfulExchange();
    });
  });
  {
    std::lock_guard lock(mutex_);
    deliveryHeld_ = std::move(deliveryHeld);
  }
  enabled_.store(enabled);
}

void DurableReports::send(platform::Bytes event) {
  APIRequest report = trackingRequest(batchBody({event}));
  exchange(report, [this, event = std::move(event), sentAt = now()](const Exchange& exchange) {
    const std::optional<platform::Error>& error = exchange.outcome.error;
    if (!error) return;
    platform::printLine(error->localizedDescription());
    if (!mayPassLater(*error)) return;
    const double keptAt = now();
    keep(event, sentAt, keptAt + retryAfterSeconds(exchange.answer, keptAt).value_or(0));
  });
}

void DurableReports::noteSuccessfulExchange() {
  if (isEnabled()) wake(true);
}

void DurableReports::flush() {
  if (isEnabled()) wake(true);
}

std::optional<ZAReportOutboxStatus> DurableReports::status() {
  std::shared_ptr<platform::ReportOutbox> outbox = sharedOutbox();
  if (!outbox) return std::nullopt;
  platform::OutboxStatus status = outbox->status();
  return ZAReportOutboxStatus{status.count, status.oldest, status.nextAttempt};
}

bool DurableReports::waitUntilSettled(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [this] { return !wakeRequested_ && !delivering_; });
}

void DurableReports::keep(const platform::Bytes& event, double sentAt, double notBefore) {
  std::shared_ptr<platform::ReportOutbox> outbox = sharedOutbox();
  if (!outbox) return;
  std::optional<std::size_t> dropped =
      outbox->append(event, sentAt, platform::OutboxLimits{}, notBefore);
  if (dropped && *dropped > 0) {
    platform::printLine("Outbox full: dropped " + std::to_string(*dropped) + " oldest reports");
  }
  wake(false);
}

void DurableReports::wake(bool ignoreBackOff) {
  std::lock_guard lock(mutex_);
  wakeRequested_ = true;
  ignoreBackOff_ = ignoreBackOff_ || ignoreBackOff;
  static pid_t workerProcess = 0;  // guarded by mutex_; a child of fork() starts its own worker
  if (!workerStarted_ || workerProcess != ::getpid()) {
    try {
      // Detached: it must not keep the process from exiting, and nothing ever stops it.
      std::thread([this] { runWorker(); }).detach();
      workerStarted_ = true;
      workerProcess = ::getpid();
    } catch (const std::system_error&) {
      wakeRequested_ = false;  // no thread to be had: the next report or flush tries again
    }
  }
  changed_.notify_all();
}

void DurableReports::runWorker() {
  std::unique_lock lock(mutex_);
  while (true) {
    if (nextLook_) {
      changed_.wait_until(lock, *nextLook_, [this] { return wakeRequested_; });
    } else {
      changed_.wait(lock, [this] { return wakeRequested_; });
    }
    const bool ignoreBackOff = ignoreBackOff_;
    wakeRequested_ = ignoreBackOff_ = false;
    nextLook_.reset();
    if (isEnabled()) {
      delivering_ = true;
      lock.unlock();
      std::optional<double> again = deliverDue(ignoreBackOff);
      lock.lock();
      delivering_ = false;
      if (again) {
        nextLook_ = nextLookAt(std::chrono::steady_clock::now(), *again);
      }
    }
    changed_.notify_all();
  }
}

std::optional<double> DurableReports::deliverDue(bool ignoreBackOff) {
  // The service's kill switch sheds load: a switched-off kit does not pour its backlog on it. The
  // reports stay kept for a start-up that finds the switch lifted.
  std::function<bool()> held;
  {
    std::lock_guard lock(mutex_);
    held = deliveryHeld_;
  }
  if (held && held()) return std::nullopt;
  // Before initialize has stored the service's address there is nowhere to deliver to.
  if (!trackingRequest({}).url()) return std::nullopt;
  std::shared_ptr<platform::ReportOutbox> outbox = sharedOutbox();
  if (!outbox) return std::nullopt;
  const std::string owner = platform::outboxOwnerName();
  static std::mt19937_64 random{std::random_device{}()};  // the worker's thread only
  while (true) {
    const double claimedAt = now();
    std::optional<platform::OutboxBatch> batch = outbox->claim(
        owner, claimedAt, kLeaseSeconds, kMaxBatchReports, kMaxBatchBytes, ignoreBackOff);
    if (!batch) {
      platform::OutboxStatus status = outbox->status();
      if (status.count == 0) return std::nullopt;
      return std::max(status.nextAttempt - claimedAt, kLookAgainSeconds);
    }
    auto [outcome, answer] = exchangeAndWait(trackingRequest(batchBody(batch->reports)));
    if (!outcome.error) {
      outbox->complete(owner, batch->ids);
      ignoreBackOff = true;  // the service is back: the rest need not wait
    } else if (!mayPassLater(*outcome.error)) {
      platform::printLine(outcome.error->localizedDescription());
      outbox->discard(owner, batch->ids);
    } else {
      const double failedAt = now();
      const double wait =
          std::max(backOffSeconds(batch->failedAttempts,
                                  std::uniform_real_distribution<double>(0, 1)(random)),
                   retryAfterSeconds(answer, failedAt).value_or(0));
      outbox->release(owner, failedAt + wait);
      return wait;
    }
  }
}

}  // namespace detail

std::optional<ZAReportOutboxStatus> ZAReportOutbox::status() {
  return detail::DurableReports::shared().status();
}

void ZAReportOutbox::flush() { detail::DurableReports::shared().flush(); }

bool ZAReportOutbox::waitUntilSettled(std::chrono::milliseconds limit) {
  return detail::DurableReports::shared().waitUntilSettled(limit);
}

}  // namespace zelnora_core
