// durable-reports, outbox, flush-outbox: the opt-in durable reports and their shared outbox.
#include <cmath>
#include <ctime>
#include <string>

#include "HostSession.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAReportOutbox.h"

namespace zelnora_host {
namespace {

using zelnora_core::ZAReportOutbox;

// UTC, to the second: "2026-11-23T19:30:05Z".
std::string utcText(double secondsSince1970) {
  const std::time_t seconds = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

std::optional<std::string> durableReports(HostSession&, const Words& words) {
  if (words.size() != 1 || (words[0] != "on" && words[0] != "off")) {
    return std::string("usage: durable-reports on|off");
  }
  zelnora_core::ZAManager::sharedInstance().setDurableReports(words[0] == "on");
  return std::nullopt;
}

std::optional<std::string> outbox(HostSession&, const Words& words) {
  return runParsed(parseNoArguments(words), [](bool) {
    std::optional<zelnora_core::ZAReportOutboxStatus> status = ZAReportOutbox::status();
    if (!status) {
      platform::printLine("host: outbox unavailable");
      return;
    }
    const double now = platform::clock().timeIntervalSince1970();
    platform::printLine("host: outbox count=" + std::to_string(status->count) + " oldest=" +
                        (status->oldest ? utcText(*status->oldest) : "none") + " next-attempt=" +
                        (status->nextAttempt > now ? utcText(status->nextAttempt) : "now"));
  });
}

std::optional<std::string> flushOutbox(HostSession&, const Words& words) {
  return runParsed(parseNoArguments(words), [](bool) { ZAReportOutbox::flush(); });
}

}  // namespace

void addOutboxCommands(CommandTable& table) {
  table["durable-reports"] = {durableReports, "on|off", "opts in to (or out of) durable reports"};
  table["outbox"] = {outbox, "",
                     "prints \"host: outbox count=N oldest=<UTC time|none> "
                     "next-attempt=<UTC time|now>\""};
  table["flush-outbox"] = {flushOutbox, "",
                           "delivers kept reports now, whatever the back-off says"};
}

}  // namespace zelnora_host
