#include "ServiceOptions.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

namespace zelnora_tools {
namespace {

bool parseNumber(const std::string& text, long long low, long long high, long long& out) {
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || value < low || value > high) return false;
  out = value;
  return true;
}

bool loadRegistry(const std::string& path, KeyRegistry& registry, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = "cannot read registry " + path;
    return false;
  }
  std::stringstream text;
  text << file.rdbuf();
  std::string why;
  auto parsed = KeyRegistry::fromJson(text.str(), &why);
  if (!parsed) {
    error = "registry " + path + ": " + why;
    return false;
  }
  registry = std::move(*parsed);
  return true;
}

// Reads an option's value into the options; false when the value is not acceptable (`error` may
// then say why).
using Apply = bool (*)(const std::string& value, ReferenceServiceOptions& options,
                       std::string& error);

struct Option {
  std::string_view name;
  std::string_view value;  // how the synopsis names the value; empty: a flag
  std::string_view summary;
  Apply apply;
};

// A whole number in [low, high] stored through `store`.
template <long long low, long long high, auto store>
bool number(const std::string& value, ReferenceServiceOptions& options, std::string&) {
  long long parsed = 0;
  if (!parseNumber(value, low, high, parsed)) return false;
  store(options, parsed);
  return true;
}

// clang-format off
constexpr Option kOptions[] = {
    {"--port", "N", "the loopback port to listen on (0 or none: a free one)",
     number<0, 65535, [](ReferenceServiceOptions& o, long long n) { o.port = static_cast<int>(n); }>},
    {"--registry", "FILE", "the keys the configuration endpoint knows, as JSON (default: demo-key)",
     [](const std::string& v, ReferenceServiceOptions& o, std::string& e) { return loadRegistry(v, o.registry, e); }},
    {"--log", "FILE", "also appends each request, as a JSON line, to FILE",
     [](const std::string& v, ReferenceServiceOptions& o, std::string&) { o.requestLogPath = v; return true; }},
    {"--max-body", "BYTES", "the largest request body accepted",
     number<0, (1LL << 40), [](ReferenceServiceOptions& o, long long n) { o.maxBodyBytes = static_cast<std::size_t>(n); }>},
    {"--quiet", "", "does not print the requests on standard output",
     [](const std::string&, ReferenceServiceOptions& o, std::string&) { o.printRequests = false; return true; }},
    {"--fault", "reset|close-mid-body|stall|garbage-status|huge-body|slow-drip",
     "makes every answer wrong in that one way, to see how a client copes",
     [](const std::string& v, ReferenceServiceOptions& o, std::string&) {
       const auto mode = faultModeNamed(v);
       if (mode) o.fault = *mode;
       return mode.has_value();
     }},
    {"--drip-ms", "N", "slow-drip: one byte every N ms (default 1)",
     number<0, 60'000, [](ReferenceServiceOptions& o, long long n) { o.dripInterval = std::chrono::milliseconds(n); }>},
    {"--fail-first", "N", "the tracking endpoints answer --fail-status to their first N requests",
     number<0, (1LL << 40), [](ReferenceServiceOptions& o, long long n) { o.failFirst = static_cast<std::size_t>(n); }>},
    {"--fail-status", "CODE", "the status of a staged outage's answers (default 503)",
     number<100, 599, [](ReferenceServiceOptions& o, long long n) { o.failStatus = static_cast<int>(n); }>},
    {"--down-for", "SECONDS", "the tracking endpoints answer --fail-status for SECONDS after start",
     number<0, 86'400, [](ReferenceServiceOptions& o, long long n) { o.downFor = std::chrono::seconds(n); }>},
    {"--retry-after", "SECONDS", "adds \"Retry-After: SECONDS\" to a staged outage's answers",
     number<0, 86'400, [](ReferenceServiceOptions& o, long long n) { o.retryAfterSeconds = n; }>},
};
// clang-format on

std::string named(const Option& option) {
  return std::string(option.name) + (option.value.empty() ? "" : " ") + std::string(option.value);
}

}  // namespace

bool parseServiceCommandLine(const std::vector<std::string>& arguments, ServiceCommandLine& parsed,
                             std::string& error) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "--help" || word == "-h") {
      parsed.help = true;
      continue;
    }
    const Option* option = nullptr;
    for (const Option& candidate : kOptions) option = candidate.name == word ? &candidate : option;
    if (option == nullptr) {
      error = "unknown option \"" + word + "\"; see zelnora-service --help";
      return false;
    }
    if (!option->value.empty() && i + 1 >= arguments.size()) {
      error = word + " needs a value: " + named(*option);
      return false;
    }
    const std::string value = option->value.empty() ? std::string() : arguments[++i];
    if (!option->apply(value, parsed.options, error)) {
      if (error.empty()) error = "bad value \"" + value + "\" for " + named(*option);
      return false;
    }
  }
  return true;
}

std::string serviceSynopsis() {
  std::string text = "usage: zelnora-service";
  for (const Option& option : kOptions) text += " [" + named(option) + "]";
  return text;
}

std::string serviceUsage() {
  std::string text =
      serviceSynopsis() +
      "\nThe reference service on 127.0.0.1: answers like the kit's service and "
      "prints every request\nas a JSON line. Stops on SIGINT or SIGTERM.\noptions:\n";
  for (const Option& option : kOptions) {
    text += "  " + named(option) + "\n      " + std::string(option.summary) + "\n";
  }
  return text + "  -h, --help\n      this help\n";
}

}  // namespace zelnora_tools
