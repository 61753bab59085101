// One load run of the kit: a host set up against a reference service (in-process, or at a given
// address), a burst of reports fired as fast as the callers can, and an exact tally of what came
// back. Used by the `zelnora-load` program and its tests.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "FaultServer.h"

namespace zelnora_load {

struct LoadOptions {
  std::size_t reports = 1000;  // per phase
  unsigned threads = 1;        // callers firing reports at once
  zelnora_tools::FaultMode fault = zelnora_tools::FaultMode::none;
  std::chrono::milliseconds dripInterval{1};
  std::string serviceUrl;  // empty: start the reference service in-process
  // Clamps every request's time-out (the kit's own is 60 s) through the platform seam; absent:
  // the kit's own. Meant for stalling peers.
  std::optional<std::chrono::duration<double>> requestTimeout;
  std::chrono::seconds waitLimit{120};  // for the completions of each phase
  bool reportPhase = true;    // ZAReportHelper::sendReport: throughput as the host sees it
  bool trackingPhase = true;  // ZAdsApiFactory::sendAppTracking with a counting completion
};

struct PhaseResult {
  bool ran = false;
  std::size_t started = 0;
  double startSeconds = 0;    // the callers' time to start every report
  double elapsedSeconds = 0;  // first start to last completion
  bool settled = false;       // every completion ran within the wait limit
  // Tracking phase only: completions seen, requests completed exactly once, outcomes.
  std::size_t completions = 0;
  std::size_t completedExactlyOnce = 0;
  std::size_t succeeded = 0;                     // a 2xx response
  std::size_t failed = 0;                        // a transport error or another status
  std::optional<std::size_t> receivedByService;  // absent with an external service

  double reportsPerSecond() const { return elapsedSeconds > 0 ? started / elapsedSeconds : 0; }
};

struct LoadResult {
  bool setUp = false;
  std::string setUpError;
  PhaseResult report;
  PhaseResult tracking;
  long peakRssKilobytes = 0;
  double wallSeconds = 0;

  // Every phase settled, and every tracking request completed exactly once.
  bool consistent() const;
};

// Runs the phases. The kit's standard output should already point somewhere harmless.
LoadResult runLoad(const LoadOptions& options);

// "zelnora-load: mode=... reports=... ..." as one line of key=value words.
std::string summaryLine(const LoadOptions& options, const LoadResult& result);

}  // namespace zelnora_load
