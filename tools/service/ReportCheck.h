// What the reference service relies on in a report (the body of POST /tracker/app), as the
// inspector flags it: {"events":[{...}, ...]} where every event carries "brand" and
// "manufacturer" ("Apple"), "hardware", "model" and "eventDate" (milliseconds since 1970 as
// decimal digits), a "deviceId" that is an upper-case UUID, an "sdkVersion" shaped
// "VERSION(BUILD)", only string values, and no member outside the device facts and the
// report's own "userId", "event", "t" and "campaignUuid".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelnora_tools {

// One line per problem found ("event 1: \"deviceId\" is not an upper-case UUID"); empty when
// the report is as expected.
std::vector<std::string> reportProblems(std::string_view body);

}  // namespace zelnora_tools
