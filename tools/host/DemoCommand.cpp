// demo: a guided host session against an in-process reference service, with no set-up and no
// network beyond loopback. It keeps the kit's stored state in a temporary directory.

#include <optional>
#include <span>
#include <string_view>

#include "HostBundle.h"
#include "HostSession.h"
#include "ReferenceService.h"
#include "platform/Console.h"
#include "platform/Services.h"

namespace zelnora_host {
namespace {

constexpr std::string_view kDemoKey = "demo-key";
// Stands for the narration of what set-user-id is about to print, which depends on the device.
constexpr std::string_view kAdvertisingNarration = "# (advertising)";

// The session the demo walks through; "#" lines are narration.
constexpr std::string_view kDemoScript[] = {
    "# start-up in debug mode: the kit fetches its configuration from the service",
    "initialize demo-key debug=true",
    "wait",
    "state",
    "# the host registers its user and the headers it wants on every request",
    kAdvertisingNarration,
    "set-user-id demo-user",
    "set-custom-headers X-Demo-Client=zelnora-host",
    "# three engagement reports; each is one POST to /tracker/app",
    "send-report event=app_open",
    "wait",
    "send-report event=campaign_view campaign=demo-campaign-1 type=push",
    "wait",
    "send-report event=app_close",
    "wait",
    "# what the kit keeps in the application-group suite",
    "prefs",
};

// The durable-reports tour: the service answers the first two reports 503 with a Retry-After of
// an hour, so the kit keeps them (and does not retry on its own during the tour) until a later
// report goes through.
constexpr std::size_t kDurableTourFailures = 2;
constexpr long long kDurableTourRetryAfterSeconds = 3600;
constexpr std::string_view kDurableScript[] = {
    "# durable reports: the host opts in before start-up; the service is in trouble and answers",
    "# the first two reports 503 with \"Retry-After: 3600\"",
    "durable-reports on",
    "initialize demo-key debug=true",
    "wait",
    "send-report event=offline_open",
    "wait",
    "send-report event=offline_view",
    "wait",
    "# both are kept in the outbox the app shares with its extension, not to be tried for an hour",
    "outbox",
    "# the service is back: this report goes through, and its success sets off the delivery of",
    "# the kept two at once, in order, as one batch",
    "send-report event=online_open",
    "wait",
    "outbox",
};

struct Tour {
  std::span<const std::string_view> script;
  std::size_t failingReports = 0;
  std::optional<long long> retryAfterSeconds;
};

void narrate(std::string_view text) { platform::printLine("host: demo: " + std::string(text)); }

// Says before set-user-id what it will print, so that an expected "Error getting adId" does not
// read as a failure of the demo.
void narrateAdvertising() {
  if (platform::advertisingIdentifierManager().isAdvertisingTrackingEnabled()) {
    narrate("the user id is stored with the device's advertising identifier");
    return;
  }
  narrate("advertising tracking is off on this device (on Linux: ZELNORA_SIM_ADVERTISING_ID is");
  narrate("not set), so the kit stores the user id without an advertising identifier and prints");
  narrate("\"Error getting adId\" next: expected here, not a failure of the demo");
}

void walkThrough(HostSession& session, std::span<const std::string_view> script) {
  for (std::string_view line : script) {
    if (line == kAdvertisingNarration) {
      narrateAdvertising();
      continue;
    }
    if (line.starts_with("# ")) {
      narrate(line.substr(2));
      continue;
    }
    platform::printLine("host: demo> " + std::string(line));
    session.run(line);
  }
}

std::optional<std::string> demo(HostSession& session, const Words& words) {
  Tour tour{kDemoScript, 0, std::nullopt};
  if (words.size() == 1 && words[0] == "durable") {
    tour = Tour{kDurableScript, kDurableTourFailures, kDurableTourRetryAfterSeconds};
  } else if (!words.empty()) {
    return "usage: demo [durable]";
  }
  if (session.commandsRun() > 0) return "demo must be the first command of a run";
  ScratchHost host("zelnora-demo");
  zelnora_tools::ReferenceServiceOptions options;
  options.registry = zelnora_tools::KeyRegistry::withDemoKey(std::string(kDemoKey));
  options.failFirst = tour.failingReports;
  options.retryAfterSeconds = tour.retryAfterSeconds;
  zelnora_tools::ReferenceService service(std::move(options));
  if (service.start() < 0 || !host.prepare(service.baseUrl())) {
    platform::printLine("host: error the demo could not set up its service and bundle");
    return std::nullopt;
  }
  narrate("reference service listening on " + service.baseUrl());
  narrate("host bundle and stored state in " + host.root().string());
  walkThrough(session, tour.script);
  platform::urlSession().waitUntilIdle(std::chrono::seconds(10));
  auto received = service.received();
  narrate("the service received " + std::to_string(received.size()) + " requests");
  for (const auto& request : received) {
    platform::printLine("host: service received " + request.toJsonLine());
  }
  return std::nullopt;
}

}  // namespace

void addDemoCommand(CommandTable& table) {
  table["demo"] = {demo, "[durable]",
                   "the guided tour (first command only); \"demo durable\" tours durable "
                   "reports"};
}

}  // namespace zelnora_host
