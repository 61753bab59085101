// Internal: the kit's rules over the platform's outbox storage — caps on what is kept, one
// process delivering at a time (a lease), back-off between failed attempts, oldest first. The
// platform store only keeps bytes and one state record; every decision is made here.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OutboxPolicy.h"
#include "platform/Bytes.h"
#include "platform/ReportOutbox.h"

namespace zelnora_core::detail {

using SystemTime = std::chrono::system_clock::time_point;

// How much the outbox keeps; past any bound the oldest reports go first.
struct OutboxLimits {
  std::size_t maxReports = 1000;
  std::size_t maxBytes = 1000 * 1000;
  std::chrono::seconds maxAge = std::chrono::hours(7 * 24);
};

// Who asks for a batch, when, and how much.
struct ClaimRequest {
  std::string owner;
  SystemTime now;
  // Longer than a request's 60 s time-out, so a lease never runs out under an exchange in flight.
  std::chrono::seconds lease = std::chrono::seconds(120);
  std::size_t maxReports = kMaxBatchReports;
  std::size_t maxBytes = kMaxBatchBytes;
  bool ignoreBackOff = false;
};

// Reports leased to one owner for one delivery attempt, oldest first.
struct ClaimedBatch {
  std::vector<std::int64_t> ids;
  std::vector<platform::Bytes> reports;
  int failedAttempts = 0;  // attempts that failed since the last delivery
};

struct LedgerStatus {
  std::size_t count = 0;
  std::optional<SystemTime> oldest;
  std::optional<SystemTime> nextAttempt;  // absent: at once
};

// Every operation is one transaction of the store; failures are silent (nothing kept, nothing
// claimed).
class OutboxLedger {
 public:
  explicit OutboxLedger(platform::ReportOutbox& store) : store_(store) {}

  // Keeps `report`, drops the oldest beyond `limits` (possibly this one) and puts the next attempt
  // no earlier than `notBefore`. How many were dropped; absent when it could not be kept.
  std::optional<std::size_t> keep(const platform::Bytes& report, SystemTime keptAt,
                                  SystemTime notBefore, const OutboxLimits& limits = {});
  // The oldest reports (at most maxReports, and maxBytes together unless the first alone is
  // larger), leased to the owner. Nothing when empty, when another owner's lease runs (one whose
  // process ended does not count), or when the back-off is not over and not ignored.
  std::optional<ClaimedBatch> claim(const ClaimRequest& request);
  // Delivered: removes the batch, clears the back-off, ends the owner's lease.
  void complete(const std::string& owner, const std::vector<std::int64_t>& ids);
  // Refused for good: removes the batch, keeps the back-off, ends the owner's lease.
  void discard(const std::string& owner, const std::vector<std::int64_t>& ids);
  // Failed: ends the owner's lease, counts the failure, waits until `nextAttempt`.
  void release(const std::string& owner, SystemTime nextAttempt);
  std::optional<LedgerStatus> status();

 private:
  platform::ReportOutbox& store_;
};

}  // namespace zelnora_core::detail
