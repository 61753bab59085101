// Internal: the pure rules of durable reports — which failures are kept, how kept reports are
// batched into one body, how long to wait before the next attempt.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/UrlSession.h"

namespace zelnora_core::detail {

inline constexpr std::size_t kMaxBatchReports = 50;
inline constexpr std::size_t kMaxBatchBytes = 64 * 1024;
using Seconds = std::chrono::duration<double>;
inline constexpr Seconds kBackOffBase{1};
inline constexpr Seconds kBackOffCap{600};

// A failure that may pass if tried later: a transport error (not a URL that cannot be sent at
// all), a 5xx or a 429. Other answers would fail again.
bool mayPassLater(const platform::Error& error);

// One body `{"events":[...]}` holding the events of every kept report, in order.
platform::Bytes batchBody(const std::vector<platform::Bytes>& keptEvents);

// Full jitter: a uniform draw in [0, min(cap, base * 2^failedAttempts)]; `unit` is in [0, 1).
Seconds backOff(int failedAttempts, double unit);

// The wait an answer asks for with "Retry-After": delta seconds or an HTTP date (IMF-fixdate,
// compared with `now`), either form at most one hour and never negative; absent when there is
// none or it cannot be read.
std::optional<Seconds> retryAfter(const std::optional<platform::HTTPURLResponse>& response,
                                  std::chrono::system_clock::time_point now);

// When to look again at the outbox `wait` from `now`: always after `now`, whatever the wait.
std::chrono::steady_clock::time_point nextLookAt(std::chrono::steady_clock::time_point now,
                                                 Seconds wait);

}  // namespace zelnora_core::detail
