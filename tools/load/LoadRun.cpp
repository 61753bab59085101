#include "LoadRun.h"

#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <latch>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "HostBundle.h"
#include "ReferenceService.h"
#include "platform/Services.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZACoreApiFactory.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAReportHelper.h"
#include "zelnora_core/ZAReportRequest.h"
#include "zelnora_core/ZAdsApiFactory.h"

namespace zelnora_load {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLoadKey = "load-key";

double secondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// The shared session with every request's time-out cut to at most `limit`: a stalling peer then
// costs a load run seconds, not the kit's 60 s per request.
class ClampingSession final : public platform::URLSession {
 public:
  ClampingSession(platform::URLSession& inner, std::chrono::duration<double> limit)
      : inner_(inner), limit_(limit) {}
  void dataTask(platform::URLRequest request, platform::DataTaskCompletion completion) override {
    request.timeoutInterval = std::min(request.timeoutInterval, limit_);
    inner_.dataTask(std::move(request), std::move(completion));
  }
  void post(std::function<void()> completion) override { inner_.post(std::move(completion)); }
  bool waitUntilIdle(std::chrono::milliseconds limit) override {
    return inner_.waitUntilIdle(limit);
  }

 private:
  platform::URLSession& inner_;
  std::chrono::duration<double> limit_;
};

// Calls `fire(i)` for i in [0, count) from `threads` callers that start together.
template <typename Fire>
void fireFromThreads(std::size_t count, unsigned threads, Fire fire) {
  if (threads <= 1) {
    for (std::size_t i = 0; i < count; ++i) fire(i);
    return;
  }
  std::latch ready(threads);
  std::vector<std::thread> callers;
  for (unsigned t = 0; t < threads; ++t) {
    callers.emplace_back([&, t] {
      ready.arrive_and_wait();
      for (std::size_t i = t; i < count; i += threads) fire(i);
    });
  }
  for (auto& caller : callers) caller.join();
}

std::optional<std::size_t> receivedSoFar(const zelnora_tools::ReferenceService* service) {
  if (service == nullptr) return std::nullopt;
  return service->receivedCount();
}

std::optional<std::size_t> receivedSince(const zelnora_tools::ReferenceService* service,
                                         std::optional<std::size_t> before) {
  auto now = receivedSoFar(service);
  if (!now || !before) return std::nullopt;
  return *now - *before;
}

PhaseResult runReportPhase(const LoadOptions& options,
                           const zelnora_tools::ReferenceService* service) {
  PhaseResult phase;
  phase.ran = true;
  phase.started = options.reports;
  const auto receivedBefore = receivedSoFar(service);
  const auto start = Clock::now();
  fireFromThreads(options.reports, options.threads, [](std::size_t i) {
    zelnora_core::ZAReportHelper::sendReport("load-" + std::to_string(i), "load-campaign", "load");
  });
  const auto started = Clock::now();
  phase.settled = platform::urlSession().waitUntilIdle(options.waitLimit);
  const auto settled = Clock::now();
  phase.startSeconds = secondsBetween(start, started);
  phase.elapsedSeconds = secondsBetween(start, settled);
  phase.receivedByService = receivedSince(service, receivedBefore);
  return phase;
}

// The same request a report sends, through the factory with a completion that tallies each
// request's completions separately: a lost or repeated completion shows up by number.
PhaseResult runTrackingPhase(const LoadOptions& options,
                             const zelnora_tools::ReferenceService* service) {
  PhaseResult phase;
  phase.ran = true;
  phase.started = options.reports;
  std::vector<std::atomic<int>> completionsOf(options.reports);
  std::atomic<std::size_t> succeeded{0}, failed{0};
  const auto receivedBefore = receivedSoFar(service);
  const auto start = Clock::now();
  fireFromThreads(options.reports, options.threads, [&](std::size_t i) {
    zelnora_core::ZAReportRequest report;
    report.events.push_back(zelnora_core::ZAReportHelper::getDeviceInfoMap());
    report.events.back()["event"] = "load-tracking-" + std::to_string(i);
    zelnora_core::ZAdsApiFactory().sendAppTracking(
        zelnora_core::ZACoreApiFactory::sendAppTrackerRequest(report),
        [&, i](std::optional<platform::HTTPURLResponse> response,
               std::optional<platform::Error> error) {
          completionsOf[i].fetch_add(1);
          const bool ok = !error && response && response->statusCode / 100 == 2;
          (ok ? succeeded : failed).fetch_add(1);
        });
  });
  const auto started = Clock::now();
  phase.settled = platform::urlSession().waitUntilIdle(options.waitLimit);
  const auto settled = Clock::now();
  phase.startSeconds = secondsBetween(start, started);
  phase.elapsedSeconds = secondsBetween(start, settled);
  for (const auto& count : completionsOf) {
    const int seen = count.load();
    phase.completions += static_cast<std::size_t>(seen);
    if (seen == 1) ++phase.completedExactlyOnce;
  }
  phase.succeeded = succeeded.load();
  phase.failed = failed.load();
  phase.receivedByService = receivedSince(service, receivedBefore);
  if (!phase.settled) {
    // Completions still to come would touch the tallies after this frame is gone.
    std::fprintf(stderr, "zelnora-load: completions still outstanding; exiting at once\n");
    std::_Exit(3);
  }
  return phase;
}

long peakRssKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

std::string yesNo(bool value) { return value ? "true" : "false"; }

}  // namespace

bool LoadResult::consistent() const {
  if (!setUp) return false;
  if (report.ran && !report.settled) return false;
  if (tracking.ran && (!tracking.settled || tracking.completedExactlyOnce != tracking.started ||
                       tracking.completions != tracking.started)) {
    return false;
  }
  return true;
}

LoadResult runLoad(const LoadOptions& options) {
  const auto runStart = Clock::now();
  LoadResult result;
  zelnora_host::ScratchHost host("zelnora-load");
  std::unique_ptr<zelnora_tools::ReferenceService> service;
  std::string baseUrl = options.serviceUrl;
  if (baseUrl.empty()) {
    zelnora_tools::ReferenceServiceOptions serviceOptions;
    serviceOptions.registry = zelnora_tools::KeyRegistry::withDemoKey(kLoadKey);
    serviceOptions.keepRequests = false;
    serviceOptions.fault = options.fault;
    serviceOptions.dripInterval = options.dripInterval;
    service = std::make_unique<zelnora_tools::ReferenceService>(std::move(serviceOptions));
    if (service->start() < 0) {
      result.setUpError = "cannot start the reference service";
      return result;
    }
    baseUrl = service->baseUrl();
  }
  if (!host.prepare(baseUrl)) {
    result.setUpError = "cannot write the host bundle";
    return result;
  }

  std::unique_ptr<ClampingSession> clamping;
  std::unique_ptr<platform::testing::ScopedServices> seam;
  if (options.requestTimeout) {
    clamping = std::make_unique<ClampingSession>(platform::urlSession(), *options.requestTimeout);
    seam = std::make_unique<platform::testing::ScopedServices>(
        [&](platform::Services& s) { s.urlSession = clamping.get(); });
  }

  zelnora_core::ZAManager::sharedInstance().initialize(kLoadKey, false);
  if (!platform::urlSession().waitUntilIdle(options.waitLimit)) {
    result.setUpError = "the configuration request did not complete";
    std::fprintf(stderr, "zelnora-load: %s\n", result.setUpError.c_str());
    std::_Exit(3);
  }
  result.setUp = true;
  if (options.reportPhase) result.report = runReportPhase(options, service.get());
  if (options.trackingPhase) result.tracking = runTrackingPhase(options, service.get());
  if (result.report.ran && !result.report.settled) {
    // Exchanges still in flight go through the clamping session: it stays for the process.
    static_cast<void>(clamping.release());
    static_cast<void>(seam.release());
  }
  seam.reset();
  if (service) service->stop();
  result.peakRssKilobytes = peakRssKilobytes();
  result.wallSeconds = secondsBetween(runStart, Clock::now());
  return result;
}

std::string summaryLine(const LoadOptions& options, const LoadResult& result) {
  std::ostringstream line;
  line.setf(std::ios::fixed);
  line.precision(3);
  line << "zelnora-load: mode=" << zelnora_tools::faultModeName(options.fault)
       << " reports=" << options.reports << " threads=" << options.threads;
  if (!result.setUp) {
    line << " setup_error=\"" << result.setUpError << "\"";
    return line.str();
  }
  auto phase = [&](const char* name, const PhaseResult& p) {
    if (!p.ran) return;
    line << " " << name << ".start_s=" << p.startSeconds << " " << name
         << ".elapsed_s=" << p.elapsedSeconds << " " << name
         << ".per_second=" << static_cast<long>(p.reportsPerSecond()) << " " << name
         << ".settled=" << yesNo(p.settled);
    if (p.receivedByService) line << " " << name << ".received=" << *p.receivedByService;
  };
  phase("report", result.report);
  phase("tracking", result.tracking);
  if (result.tracking.ran) {
    line << " tracking.completions=" << result.tracking.completions
         << " tracking.exactly_once=" << result.tracking.completedExactlyOnce
         << " tracking.succeeded=" << result.tracking.succeeded
         << " tracking.failed=" << result.tracking.failed;
  }
  line << " peak_rss_kb=" << result.peakRssKilobytes << " wall_s=" << result.wallSeconds
       << " consistent=" << yesNo(result.consistent());
  return line.str();
}

}  // namespace zelnora_load
