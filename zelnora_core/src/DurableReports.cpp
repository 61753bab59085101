#include "DurableReports.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <system_error>
#include <thread>
#include <utility>

#include "APIServiceDetail.h"
#include "OutboxLedger.h"
#include "OutboxPolicy.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace detail {
namespace {

// How soon to look again at an outbox that holds reports but gave none (leased elsewhere).
constexpr Seconds kLookAgain{1};

// Sends one batch and waits for its outcome (the worker's thread only).
Exchange exchangeAndWait(const APIRequest& request) {
  struct Pending {
    platform::Mutex mutex;
    std::condition_variable_any done;
    std::optional<Exchange> result ZELNORA_GUARDED_BY(mutex);
  };
  auto pending = std::make_shared<Pending>();
  exchange(request, [pending](Exchange finished) {
    {
      platform::MutexLock lock(pending->mutex);
      pending->result.emplace(std::move(finished));
    }
    pending->done.notify_one();  // unlocked: the waiting thread wakes to a free mutex
  });
  platform::MutexLock lock(pending->mutex);
  while (!pending->result) pending->done.wait(pending->mutex);
  return std::move(*pending->result);
}

APIRequest trackingRequest(platform::Bytes body) {
  return APIRequest(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt, std::nullopt,
                    std::nullopt, std::move(body));
}

std::shared_ptr<platform::ReportOutbox> sharedOutbox() {
  return platform::reportOutboxes().outbox(ZAPreferencesUtil::appGroupSuiteName());
}

SystemTime now() {
  return SystemTime(std::chrono::duration_cast<SystemTime::duration>(
      Seconds(platform::clock().timeIntervalSince1970())));
}

double secondsSince1970(SystemTime time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

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
    platform::MutexLock lock(mutex_);
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
    const SystemTime keptAt = now();
    keep(event, sentAt,
         keptAt + std::chrono::duration_cast<SystemTime::duration>(
                      retryAfter(exchange.answer, keptAt).value_or(Seconds(0))));
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
  std::optional<LedgerStatus> status = outbox ? OutboxLedger(*outbox).status() : std::nullopt;
  if (!status) return std::nullopt;
  ZAReportOutboxStatus answer{status->count, std::nullopt, 0};
  if (status->oldest) answer.oldest = secondsSince1970(*status->oldest);
  if (status->nextAttempt) answer.nextAttempt = secondsSince1970(*status->nextAttempt);
  return answer;
}

bool DurableReports::waitUntilSettled(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  platform::MutexLock lock(mutex_);
  return platform::waitUntil(settled_, mutex_, deadline, [this]() ZELNORA_REQUIRES(mutex_) {
    return !wakeRequested_ && !delivering_;
  });
}

void DurableReports::keep(const platform::Bytes& event, SystemTime sentAt, SystemTime notBefore) {
  std::shared_ptr<platform::ReportOutbox> outbox = sharedOutbox();
  if (!outbox) return;
  std::optional<std::size_t> dropped = OutboxLedger(*outbox).keep(event, sentAt, notBefore);
  if (dropped && *dropped > 0) {
    platform::printLine("Outbox full: dropped " + std::to_string(*dropped) + " oldest reports");
  }
  wake(false);
}

void DurableReports::wake(bool ignoreBackOff) {
  {
    platform::MutexLock lock(mutex_);
    wakeRequested_ = true;
    ignoreBackOff_ = ignoreBackOff_ || ignoreBackOff;
    if (!workerStarted_ || workerProcess_ != ::getpid()) {
      try {
        // Detached: it must not keep the process from exiting, and nothing ever stops it.
        std::thread([this] { runWorker(); }).detach();
        workerStarted_ = true;
        workerProcess_ = ::getpid();
      } catch (const std::system_error&) {
        wakeRequested_ = false;  // no thread to be had: the next report or flush tries again
      }
    }
  }
  // Unlocked, so that the worker wakes to a free mutex. While it delivers nobody waits here and
  // this costs nothing: a batch's own success, announced through the observer, wakes no thread.
  workRequested_.notify_one();
}

void DurableReports::runWorker() {
  while (true) {
    bool ignoreBackOff = false;
    bool deliver = false;
    {
      platform::MutexLock lock(mutex_);
      awaitWake();
      ignoreBackOff = ignoreBackOff_;
      wakeRequested_ = ignoreBackOff_ = false;
      nextLook_.reset();
      deliver = delivering_ = isEnabled();
    }
    const std::optional<Seconds> again = deliver ? deliverDue(ignoreBackOff) : std::nullopt;
    {
      platform::MutexLock lock(mutex_);
      delivering_ = false;
      if (again) nextLook_ = nextLookAt(std::chrono::steady_clock::now(), *again);
    }
    settled_.notify_all();  // unlocked: a caller in waitUntilSettled wakes to a free mutex
  }
}

// Until a wake is requested or the time to look again has come.
void DurableReports::awaitWake() {
  while (!wakeRequested_) {
    if (!nextLook_) {
      workRequested_.wait(mutex_);
    } else if (workRequested_.wait_until(mutex_, *nextLook_) == std::cv_status::timeout) {
      return;
    }
  }
}

std::optional<Seconds> DurableReports::deliverDue(bool ignoreBackOff) {
  // The service's kill switch sheds load: a switched-off kit does not pour its backlog on it. The
  // reports stay kept for a start-up that finds the switch lifted.
  std::function<bool()> held;
  {
    platform::MutexLock lock(mutex_);
    held = deliveryHeld_;
  }
  if (held && held()) return std::nullopt;
  // Before initialize has stored the service's address there is nowhere to deliver to.
  if (!trackingRequest({}).url()) return std::nullopt;
  std::shared_ptr<platform::ReportOutbox> outbox = sharedOutbox();
  if (!outbox) return std::nullopt;
  OutboxLedger ledger(*outbox);
  ClaimRequest request;
  request.owner = platform::outboxOwnerName();
  request.ignoreBackOff = ignoreBackOff;
  static std::mt19937_64 random{std::random_device{}()};  // the worker's thread only
  while (true) {
    request.now = now();
    std::optional<ClaimedBatch> batch = ledger.claim(request);
    if (!batch) {
      std::optional<LedgerStatus> status = ledger.status();
      if (!status || status->count == 0) return std::nullopt;
      return std::max<Seconds>(status->nextAttempt.value_or(request.now) - request.now, kLookAgain);
    }
    auto [outcome, answer] = exchangeAndWait(trackingRequest(batchBody(batch->reports)));
    if (!outcome.error) {
      ledger.complete(request.owner, batch->ids);
      request.ignoreBackOff = true;  // the service is back: the rest need not wait
    } else if (!mayPassLater(*outcome.error)) {
      platform::printLine(outcome.error->localizedDescription());
      ledger.discard(request.owner, batch->ids);
    } else {
      const SystemTime failedAt = now();
      const Seconds wait = std::max(
          backOff(batch->failedAttempts, std::uniform_real_distribution<double>(0, 1)(random)),
          retryAfter(answer, failedAt).value_or(Seconds(0)));
      ledger.release(request.owner,
                     failedAt + std::chrono::duration_cast<SystemTime::duration>(wait));
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
