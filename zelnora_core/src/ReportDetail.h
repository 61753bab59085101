// Internal: the formatting rules of the device information map, kept apart so that they can be
// checked one by one, and the map builder that takes an already read user record.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "zelnora_core/ZAUserDataCache.h"

namespace zelnora_core::detail {

// One event of a report body as JSON: an object of its members in key order.
std::string eventJson(const std::map<std::string, std::string>& event);

// Seconds since 1970 to whole milliseconds in decimal, rounded half away from zero. Absent for a
// reading that no clock can give: not finite, or beyond a signed 64-bit millisecond count.
std::optional<std::string> eventDateText(double secondsSince1970);

// "%f" of the C locale whatever the process locale: fixed, six decimals, "." separator.
std::string fixedSixDecimals(double value);

// A vendor identifier in canonical form (upper-case 8-4-4-4-12); absent when it is not a UUID.
std::optional<std::string> canonicalUuid(std::string_view text);

// The device information map, with "adId" taken from `user` (the stored user record, read once by
// the caller so that a report's "adId" and "userId" come from the same record).
std::map<std::string, std::string> deviceInfoMap(const std::optional<ZAUserDataCache>& user);

}  // namespace zelnora_core::detail
