/// \file
/// A durable queue of reports waiting for delivery, kept in the application-group container so
/// that the host application and its extension share it. Used only when the host opts in to
/// durable reports; without that nothing opens it and no file is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bytes.h"
#include "platform/export.h"

namespace platform {

/// How much the outbox keeps; past any bound the oldest reports go first.
struct ZELNORA_PLATFORM_EXPORT OutboxLimits {
  std::size_t maxReports = 1000;
  std::size_t maxBytes = 1000 * 1000;
  double maxAgeSeconds = 7 * 24 * 3600.0;
};

/// Reports leased to one owner for one delivery attempt, oldest first (by the time they were kept
/// at, then by arrival).
struct ZELNORA_PLATFORM_EXPORT OutboxBatch {
  std::vector<std::int64_t> ids;
  std::vector<Bytes> reports;
  int failedAttempts = 0;  ///< attempts that failed since the last delivery
};

struct ZELNORA_PLATFORM_EXPORT OutboxStatus {
  std::size_t count = 0;
  std::optional<double> oldest;  ///< when the oldest report was kept (seconds since 1970)
  double nextAttempt = 0;        ///< when delivery may next be tried; 0: at once
};

/// Times are seconds since 1970. Every operation is one transaction, safe from any thread and from
/// several processes at once; failures are silent (nothing kept, nothing claimed).
class ZELNORA_PLATFORM_EXPORT ReportOutbox {
 public:
  virtual ~ReportOutbox() = default;
  ReportOutbox() = default;
  ReportOutbox(const ReportOutbox&) = delete;
  ReportOutbox& operator=(const ReportOutbox&) = delete;

  /// Keeps `report`, then drops the oldest reports beyond `limits` (possibly this one), and puts
  /// the next attempt no earlier than `notBefore`. How many were dropped; absent when the report
  /// could not be kept.
  virtual std::optional<std::size_t> append(const Bytes& report, double now,
                                            const OutboxLimits& limits, double notBefore) = 0;

  /// Leases the oldest reports (at most `maxReports`, and at most `maxBytes` together unless the
  /// first alone is larger) to `owner` until `now + leaseSeconds`. Nothing when the outbox is
  /// empty, when another owner's lease runs (a lease whose process has ended does not count), or
  /// when the next attempt is not due and `ignoreBackOff` is false. While leased, no other owner
  /// can claim any report.
  virtual std::optional<OutboxBatch> claim(const std::string& owner, double now,
                                           double leaseSeconds, std::size_t maxReports,
                                           std::size_t maxBytes, bool ignoreBackOff) = 0;

  /// After a delivered batch: removes its reports, clears the back-off and ends `owner`'s lease.
  virtual void complete(const std::string& owner, const std::vector<std::int64_t>& ids) = 0;
  /// After a failed attempt: ends `owner`'s lease, counts the failure and sets the next attempt.
  virtual void release(const std::string& owner, double nextAttempt) = 0;
  /// After a batch the service refused for good: removes it, keeps the back-off, ends the lease.
  virtual void discard(const std::string& owner, const std::vector<std::int64_t>& ids) = 0;

  virtual OutboxStatus status() = 0;
};

class ZELNORA_PLATFORM_EXPORT ReportOutboxStore {
 public:
  virtual ~ReportOutboxStore() = default;
  ReportOutboxStore() = default;
  ReportOutboxStore(const ReportOutboxStore&) = delete;
  ReportOutboxStore& operator=(const ReportOutboxStore&) = delete;

  /// The outbox of the application group `groupName` (the preferences suite's name), or null
  /// when it cannot be opened. An outbox file that is not a sound database is set aside (renamed
  /// with a ".corrupt-<time>" suffix) and an empty one takes its place. Any thread.
  virtual std::shared_ptr<ReportOutbox> outbox(std::string_view groupName) = 0;
};

/// One SQLite database per group in `containerDirectory`, "<group>.outbox.db", mode 0600, beside
/// the preferences suites and apart from them.
ZELNORA_PLATFORM_EXPORT std::unique_ptr<ReportOutboxStore> makeSqliteReportOutboxStore(
    std::string containerDirectory);

/// A name for this process as a lease owner: unique per process and per fork.
ZELNORA_PLATFORM_EXPORT std::string outboxOwnerName();

}  // namespace platform
