/// \file
/// The outbox of durable reports, for hosts that opted in with
/// `ZAManager::setDurableReports(true)` (or "DURABLE_REPORTS" in ZelnoraAdsConfig.plist): reports
/// whose exchange failed in a way that may pass later, kept in the application-group container
/// and delivered in order, at least once, by whichever process of the group runs the kit.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "zelnora_core/export.h"

namespace zelnora_core {

struct ZELNORA_CORE_EXPORT ZAReportOutboxStatus {
  std::size_t count = 0;
  std::optional<double> oldest;  ///< when the oldest report was kept, seconds since 1970
  double nextAttempt = 0;        ///< when delivery may next be tried; 0: at once
};

class ZELNORA_CORE_EXPORT ZAReportOutbox {
 public:
  /// What the shared outbox holds now; absent when it cannot be opened. Any thread.
  static std::optional<ZAReportOutboxStatus> status();
  /// Delivers kept reports now, whatever the back-off says (when opted in). Returns at once.
  static void flush();
  /// Waits until this process has no delivery pending or in flight, or `limit` passes. True when
  /// settled. For hosts and tests; the kit never waits.
  static bool waitUntilSettled(std::chrono::milliseconds limit);
};

}  // namespace zelnora_core
