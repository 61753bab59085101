// zelnora-service: the reference service as a program. Runs until SIGINT or SIGTERM.
//
//   zelnora-service [--port N] [--registry FILE] [--log FILE] [--max-body BYTES] [--quiet]
//                   [--fault MODE] [--drip-ms N] [--fail-first N] [--fail-status CODE]
//                   [--down-for SECONDS] [--retry-after SECONDS]
//
// --fault makes every answer wrong in one way, to see how a client copes: reset, close-mid-body,
// stall, garbage-status, huge-body or slow-drip (one byte every --drip-ms, default 1).
// --fail-first N and --down-for SECONDS make the tracking endpoints answer --fail-status (default
// 503) to their first N requests and for that long after start: an outage, for durable reports;
// --retry-after adds that Retry-After field to those answers.
// Without --registry the service knows one key, "demo-key". Every request is printed on standard
// output as a JSON line (unless --quiet) and appended to the --log file. http://127.0.0.1:PORT/
// shows them live and changes the registry and the outage (Inspector.h).
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "ReferenceService.h"

namespace {

constexpr const char* kUsage =
    "usage: zelnora-service [--port N] [--registry FILE] [--log FILE] [--max-body BYTES] "
    "[--quiet] [--fault reset|close-mid-body|stall|garbage-status|huge-body|slow-drip] "
    "[--drip-ms N] [--fail-first N] [--fail-status CODE] [--down-for SECONDS] "
    "[--retry-after SECONDS]";

bool parseNumber(const std::string& text, long long low, long long high, long long& out) {
  char* end = nullptr;
  errno = 0;
  long long value = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || value < low || value > high) return false;
  out = value;
  return true;
}

bool loadRegistry(const std::string& path, zelnora_tools::KeyRegistry& registry) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::cerr << "zelnora-service: cannot read registry " << path << "\n";
    return false;
  }
  std::stringstream text;
  text << file.rdbuf();
  std::string error;
  auto parsed = zelnora_tools::KeyRegistry::fromJson(text.str(), &error);
  if (!parsed) {
    std::cerr << "zelnora-service: registry " << path << ": " << error << "\n";
    return false;
  }
  registry = std::move(*parsed);
  return true;
}

bool parseOptions(int argc, char** argv, zelnora_tools::ReferenceServiceOptions& options) {
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--quiet") {
      options.printRequests = false;
      continue;
    }
    if (i + 1 >= argc) return false;
    std::string value = argv[++i];
    long long number = 0;
    if (option == "--port" && parseNumber(value, 0, 65535, number)) {
      options.port = static_cast<int>(number);
    } else if (option == "--max-body" && parseNumber(value, 0, 1LL << 40, number)) {
      options.maxBodyBytes = static_cast<std::size_t>(number);
    } else if (option == "--drip-ms" && parseNumber(value, 0, 60'000, number)) {
      options.dripInterval = std::chrono::milliseconds(number);
    } else if (option == "--fault" && zelnora_tools::faultModeNamed(value)) {
      options.fault = *zelnora_tools::faultModeNamed(value);
    } else if (option == "--fail-first" && parseNumber(value, 0, 1LL << 40, number)) {
      options.failFirst = static_cast<std::size_t>(number);
    } else if (option == "--fail-status" && parseNumber(value, 100, 599, number)) {
      options.failStatus = static_cast<int>(number);
    } else if (option == "--down-for" && parseNumber(value, 0, 86'400, number)) {
      options.downFor = std::chrono::seconds(number);
    } else if (option == "--retry-after" && parseNumber(value, 0, 86'400, number)) {
      options.retryAfterSeconds = number;
    } else if (option == "--log") {
      options.requestLogPath = value;
    } else if (option == "--registry") {
      if (!loadRegistry(value, options.registry)) return false;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  zelnora_tools::ReferenceServiceOptions options;
  options.registry = zelnora_tools::KeyRegistry::withDemoKey("demo-key");
  options.printRequests = true;
  options.inspector = true;
  if (!parseOptions(argc, argv, options)) {
    std::cerr << kUsage << "\n";
    return 2;
  }

  // Block the stop signals in every thread (the server's threads inherit the mask) and take them
  // synchronously here, so that stopping runs on an ordinary thread.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  zelnora_tools::ReferenceService service(std::move(options));
  int port = service.start();
  if (port < 0) {
    std::cerr << "zelnora-service: cannot listen on 127.0.0.1 (port in use?)\n";
    return 1;
  }
  std::printf("zelnora-service: listening on 127.0.0.1:%d\n", port);
  std::fflush(stdout);

  int received = 0;
  sigwait(&stopSignals, &received);
  service.stop();
  std::printf("zelnora-service: stopped\n");
  return 0;
}
