#include "OutboxPolicy.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace zelnora_core::detail {
namespace {

constexpr std::string_view kBodyStart = "{\"events\":[";
constexpr std::string_view kBodyEnd = "]}";
// A service asking for more than an hour is taken to mean an hour.
constexpr double kMaxRetryAfterSeconds = 3600;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::optional<double> httpDateSeconds(const std::string& text) {
  static constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm time{};
  std::array<char, 4> month{};
  int parsed = std::sscanf(text.c_str(), "%*3s, %2d %3s %4d %2d:%2d:%2d GMT", &time.tm_mday,
                           month.data(), &time.tm_year, &time.tm_hour, &time.tm_min, &time.tm_sec);
  if (parsed != 6) return std::nullopt;
  auto found = std::find_if(kMonths.begin(), kMonths.end(),
                            [&](const char* name) { return std::strcmp(name, month.data()) == 0; });
  if (found == kMonths.end()) return std::nullopt;
  time.tm_mon = static_cast<int>(found - kMonths.begin());
  time.tm_year -= 1900;
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

std::optional<std::string_view> eventsText(const platform::Bytes& body) {
  std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  if (!text.starts_with(kBodyStart) || !text.ends_with(kBodyEnd) ||
      text.size() < kBodyStart.size() + kBodyEnd.size() + 2) {
    return std::nullopt;  // also `{"events":[]}`: nothing to deliver
  }
  return text.substr(kBodyStart.size(), text.size() - kBodyStart.size() - kBodyEnd.size());
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

double backOffSeconds(int failedAttempts, double unit) {
  const double ceiling = std::min(
      kBackOffCapSeconds, kBackOffBaseSeconds * std::exp2(std::clamp(failedAttempts, 0, 30)));
  return std::clamp(unit, 0.0, 1.0) * ceiling;
}

std::optional<double> retryAfterSeconds(const std::optional<platform::HTTPURLResponse>& response,
                                        double now) {
  if (!response) return std::nullopt;
  for (const auto& [name, value] : response->allHeaderFields) {
    if (!equalsIgnoringCase(name, "Retry-After")) continue;
    if (!value.empty() && std::all_of(value.begin(), value.end(), [](char c) {
          return std::isdigit(static_cast<unsigned char>(c)) != 0;
        })) {
      return std::min(std::strtod(value.c_str(), nullptr), kMaxRetryAfterSeconds);
    }
    if (auto date = httpDateSeconds(value)) return std::max(0.0, *date - now);
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace zelnora_core::detail
