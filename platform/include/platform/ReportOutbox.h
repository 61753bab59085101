/// \file
/// Storage for durable reports waiting for delivery, kept in the application-group container so
/// that the host application and its extension share it. Used only when the host opts in to
/// durable reports; without that nothing opens it and no file is made. The store keeps bytes and
/// nothing else: which reports to drop, who may deliver and when are the kit's to decide.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bytes.h"
#include "platform/export.h"

namespace platform {

/// One kept report, as appended.
struct ZELNORA_PLATFORM_EXPORT StoredReport {
  std::int64_t id = 0;
  std::chrono::system_clock::time_point keptAt;
  Bytes body;
};

/// What the outbox holds as a whole.
struct ZELNORA_PLATFORM_EXPORT StoredTotals {
  std::size_t count = 0;
  std::size_t bytes = 0;  ///< of every body together
  std::optional<std::chrono::system_clock::time_point> oldest;
};

/// The operations of one transaction. Every read sees the writes made before it in the same
/// transaction; nothing is seen by others until the transaction commits.
class ZELNORA_PLATFORM_EXPORT ReportOutboxTransaction {
 public:
  virtual ~ReportOutboxTransaction() = default;
  /// Keeps `body`; false when it could not be kept (the transaction is then rolled back).
  virtual bool append(const Bytes& body, std::chrono::system_clock::time_point keptAt) = 0;
  /// At most `limit` reports, oldest first: by keptAt, then by order of appending.
  virtual std::vector<StoredReport> oldest(std::size_t limit) = 0;
  virtual StoredTotals totals() = 0;
  /// Removes the reports with these ids (unknown ids are skipped).
  virtual void remove(const std::vector<std::int64_t>& ids) = 0;
  /// The one state record the kit keeps beside the reports, empty until first written.
  virtual std::string state() = 0;
  virtual void setState(const std::string& state) = 0;
};

/// Safe from any thread and from several processes at once; failures are silent.
class ZELNORA_PLATFORM_EXPORT ReportOutbox {
 public:
  virtual ~ReportOutbox() = default;
  ReportOutbox() = default;
  ReportOutbox(const ReportOutbox&) = delete;
  ReportOutbox& operator=(const ReportOutbox&) = delete;

  using Work = std::function<bool(ReportOutboxTransaction&)>;
  /// Runs `work` in one transaction that excludes every other writer, in this process or another,
  /// and commits what it did when it returns true (rolls back otherwise). True when committed.
  virtual bool transact(const Work& work) = 0;
};

class ZELNORA_PLATFORM_EXPORT ReportOutboxStore {
 public:
  virtual ~ReportOutboxStore() = default;
  ReportOutboxStore() = default;
  ReportOutboxStore(const ReportOutboxStore&) = delete;
  ReportOutboxStore& operator=(const ReportOutboxStore&) = delete;

  /// The outbox of the application group `groupName` (the preferences suite's name), or null
  /// when it cannot be opened. An outbox file that is not a sound database (or not a regular
  /// file) is set aside (renamed with a ".corrupt-<time>" suffix) and an empty one takes its
  /// place. Any thread.
  virtual std::shared_ptr<ReportOutbox> outbox(std::string_view groupName) = 0;
};

/// One SQLite database per group in `containerDirectory`, "<group>.outbox.db", mode 0600, beside
/// the preferences suites and apart from them.
ZELNORA_PLATFORM_EXPORT std::unique_ptr<ReportOutboxStore> makeSqliteReportOutboxStore(
    std::string containerDirectory);

/// A name for this process as the holder of a delivery: unique per process and per fork.
ZELNORA_PLATFORM_EXPORT std::string outboxOwnerName();
/// Whether the process an outboxOwnerName() names may still run: false only when it surely ended
/// (a name not made by outboxOwnerName counts as ended).
ZELNORA_PLATFORM_EXPORT bool outboxOwnerMayRun(std::string_view owner);

}  // namespace platform
