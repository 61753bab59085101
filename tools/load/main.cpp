// zelnora-load: fires a burst of reports at a reference service (in-process, or at --url) and
// checks that every one completes exactly once; prints throughput, outcomes and peak RSS.
//
//   zelnora-load [--reports N] [--threads T] [--fault MODE] [--drip-ms N] [--timeout SECONDS]
//                [--wait SECONDS] [--url URL] [--phase report|tracking|both] [--stdout]
//
// The kit's own output (dumps, failure lines) goes to /dev/null unless --stdout; the summary is
// one line on standard error. Exit status 0 when every phase settled and every tracking request
// completed exactly once, 1 when not, 2 on a usage error. --timeout clamps each request's
// time-out (default 1 s with --fault stall, the kit's own 60 s otherwise).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "LoadRun.h"

namespace {

constexpr const char* kUsage =
    "usage: zelnora-load [--reports N] [--threads T] [--fault MODE] [--drip-ms N] "
    "[--timeout SECONDS] [--wait SECONDS] [--url URL] [--phase report|tracking|both] [--stdout]";

bool parseNumber(const std::string& text, double low, double high, double& out) {
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || errno != 0 || !(value >= low && value <= high)) return false;
  out = value;
  return true;
}

bool parsePhase(const std::string& value, zelnora_load::LoadOptions& options) {
  if (value != "report" && value != "tracking" && value != "both") return false;
  options.reportPhase = value != "tracking";
  options.trackingPhase = value != "report";
  return true;
}

bool parseOptions(int argc, char** argv, zelnora_load::LoadOptions& options, bool& keepStdout) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--stdout") {
      keepStdout = true;
      continue;
    }
    if (i + 1 >= argc) return false;
    const std::string value = argv[++i];
    double number = 0;
    if (option == "--reports" && parseNumber(value, 1, 10'000'000, number)) {
      options.reports = static_cast<std::size_t>(number);
    } else if (option == "--threads" && parseNumber(value, 1, 64, number)) {
      options.threads = static_cast<unsigned>(number);
    } else if (option == "--drip-ms" && parseNumber(value, 0, 60'000, number)) {
      options.dripInterval = std::chrono::milliseconds(static_cast<long>(number));
    } else if (option == "--timeout" && parseNumber(value, 0.001, 3600, number)) {
      options.requestTimeout = std::chrono::duration<double>(number);
    } else if (option == "--wait" && parseNumber(value, 1, 3600, number)) {
      options.waitLimit = std::chrono::seconds(static_cast<long>(number));
    } else if (option == "--fault" && zelnora_tools::faultModeNamed(value)) {
      options.fault = *zelnora_tools::faultModeNamed(value);
    } else if (option == "--url") {
      options.serviceUrl = value;
    } else if (!(option == "--phase" && parsePhase(value, options))) {
      return false;
    }
  }
  return true;
}

void silenceStandardOutput() {
  const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (devNull < 0) return;
  ::dup2(devNull, STDOUT_FILENO);
  ::close(devNull);
}

}  // namespace

int main(int argc, char** argv) {
  zelnora_load::LoadOptions options;
  bool keepStdout = false;
  if (!parseOptions(argc, argv, options, keepStdout)) {
    std::fprintf(stderr, "%s\n", kUsage);
    return 2;
  }
  if (options.fault == zelnora_tools::FaultMode::stall && !options.requestTimeout) {
    options.requestTimeout = std::chrono::seconds(1);
  }
  if (!keepStdout) silenceStandardOutput();
  const zelnora_load::LoadResult result = zelnora_load::runLoad(options);
  std::fprintf(stderr, "%s\n", zelnora_load::summaryLine(options, result).c_str());
  return result.consistent() ? 0 : 1;
}
