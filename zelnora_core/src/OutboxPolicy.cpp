#include "OutboxPolicy.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/internal/HttpText.h"

namespace zelnora_core::detail {
namespace {

constexpr std::string_view kBodyStart = "{\"events\":[";
constexpr std::string_view kBodyEnd = "]}";
// A service asking for more than an hour, in seconds or by a date, is taken to mean an hour.
constexpr double kMaxRetryAfterSeconds = 3600;
// The longest the delivery thread sleeps before it looks again; far beyond any back-off.
constexpr double kMaxLookAgainSeconds = 24 * 3600.0;
constexpr double kMinLookAgainSeconds = 0.001;

// Reads exactly `width` digits at `at` and the `separator` after them, moving past both. On
// failure `at` stays put, so it never passes the end of `text`.
std::optional<int> digitsThen(std::string_view text, size_t& at, size_t width,
                              std::string_view separator) {
  if (at + width > text.size() || text.substr(at + width, separator.size()) != separator) {
    return std::nullopt;
  }
  int value = 0;
  auto [end, error] = std::from_chars(text.data() + at, text.data() + at + width, value);
  if (error != std::errc() || end != text.data() + at + width) return std::nullopt;
  at += width + separator.size();
  return value;
}

// The IMF-fixdate form of Retry-After: "Sun, 06 Nov 1994 08:49:37 GMT".
std::optional<double> httpDateSeconds(std::string_view text) {
  static constexpr std::array<std::string_view, 12> kMonths = {
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (text.size() < 5 || text.substr(3, 2) != ", ") return std::nullopt;  // day name unchecked
  size_t at = 5;
  const auto day = digitsThen(text, at, 2, " ");
  const auto month = std::find(kMonths.begin(), kMonths.end(), text.substr(at, 3));
  if (!day || month == kMonths.end() || text.substr(at + 3, 1) != " ") return std::nullopt;
  at += 4;
  const auto year = digitsThen(text, at, 4, " ");
  const auto hour = digitsThen(text, at, 2, ":");
  const auto minute = digitsThen(text, at, 2, ":");
  const auto second = digitsThen(text, at, 2, " GMT");
  if (!year || !hour || !minute || !second || at != text.size()) return std::nullopt;
  std::tm time{};
  time.tm_mday = *day;
  time.tm_mon = static_cast<int>(month - kMonths.begin());
  time.tm_year = *year - 1900;
  time.tm_hour = *hour;
  time.tm_min = *minute;
  time.tm_sec = *second;
  return static_cast<double>(::timegm(&time));
}

}  // namespace

bool mayPassLater(const platform::Error& error) {
  if (error.domain == platform::kURLErrorDomain) {
    return error.code != platform::kURLErrorBadURL &&
           error.code != platform::kURLErrorUnsupportedURL;
  }
  return error.domain == "StatusCode" && (error.code >= 500 || error.code == 429);
}

platform::Bytes batchBody(const std::vector<platform::Bytes>& keptEvents) {
  platform::Bytes body(kBodyStart.begin(), kBodyStart.end());
  for (std::size_t i = 0; i < keptEvents.size(); ++i) {
    if (i > 0) body.push_back(',');
    body.insert(body.end(), keptEvents[i].begin(), keptEvents[i].end());
  }
  body.insert(body.end(), kBodyEnd.begin(), kBodyEnd.end());
  return body;
}

Seconds backOff(int failedAttempts, double unit) {
  const Seconds ceiling =
      std::min(kBackOffCap, kBackOffBase * std::exp2(std::clamp(failedAttempts, 0, 30)));
  return std::clamp(unit, 0.0, 1.0) * ceiling;
}

std::optional<Seconds> retryAfter(const std::optional<platform::HTTPURLResponse>& response,
                                  std::chrono::system_clock::time_point now) {
  if (!response) return std::nullopt;
  for (const auto& [name, value] : response->allHeaderFields) {
    if (!platform::http::equalsIgnoringCase(name, "Retry-After")) continue;
    if (!value.empty() &&
        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      return Seconds(std::min(std::strtod(value.c_str(), nullptr), kMaxRetryAfterSeconds));
    }
    if (auto date = httpDateSeconds(value)) {
      const double since1970 = std::chrono::duration<double>(now.time_since_epoch()).count();
      return Seconds(std::clamp(*date - since1970, 0.0, kMaxRetryAfterSeconds));
    }
    return std::nullopt;
  }
  return std::nullopt;
}

std::chrono::steady_clock::time_point nextLookAt(std::chrono::steady_clock::time_point now,
                                                 Seconds wait) {
  // NaN compares false both ways and falls to the shortest wait.
  const double seconds = wait.count() > kMinLookAgainSeconds
                             ? std::min(wait.count(), kMaxLookAgainSeconds)
                             : kMinLookAgainSeconds;
  return now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(Seconds(seconds));
}

}  // namespace zelnora_core::detail
