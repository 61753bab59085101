// Pure parsing for zelnora-host: the program's own arguments, splitting one command line into
// words, and each command's arguments. Nothing here touches the kit or the platform.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zelnora_core/APIRequest.h"

namespace zelnora_host {

// A parse outcome: the value, or a message saying what is wrong (the usage for the user).
template <typename T>
struct Parsed {
  std::optional<T> value;
  std::string error;

  static Parsed success(T v) { return Parsed{std::move(v), {}}; }
  static Parsed failure(std::string message) { return Parsed{std::nullopt, std::move(message)}; }
  explicit operator bool() const { return value.has_value(); }
  const T& operator*() const { return *value; }
  const T* operator->() const { return &*value; }
};

struct HostArguments {
  bool help = false;  // --help or -h
  std::optional<std::string> bundleDirectory;
  std::vector<std::string> commandLines;  // empty: read commands from standard input
};
// `zelnora-host [--bundle DIR] [COMMAND ...]` or `zelnora-host --help`; argv[0] is skipped. A
// word starting with "-" before the first command is an option; an unknown one is an error.
Parsed<HostArguments> parseHostArguments(const std::vector<std::string>& arguments);

// Splits one command line into words at blanks (space, tab). Double quotes group characters into
// one word (`""` is an empty word); a backslash makes the following `"` or `\` literal and is kept
// before any other character. An unterminated quote is an error.
Parsed<std::vector<std::string>> splitCommandLine(std::string_view line);

// "NAME=VALUE" split at the first "=": absent when there is no "=".
std::optional<std::pair<std::string, std::string>> splitKeyValue(std::string_view word);

// The words after the command name.
using Words = std::vector<std::string>;

struct InitializeArguments {
  std::string appKey;
  std::optional<bool> debugMode;
  bool operator==(const InitializeArguments&) const = default;
};
Parsed<InitializeArguments> parseInitialize(const Words& words);

// Default 10 s; SECONDS is a non-negative decimal number.
Parsed<std::chrono::milliseconds> parseWait(const Words& words);

Parsed<std::string> parseSetUserId(const Words& words);

// NAME=VALUE words; none gives an empty map; a repeated name keeps the last value.
Parsed<std::map<std::string, std::string>> parseCustomHeaders(const Words& words);

enum class PrefType { data, string, dictionary };
struct SetPrefArguments {
  std::string key;
  PrefType type = PrefType::string;
  std::string text;                               // data and string: the value's bytes
  std::map<std::string, std::string> dictionary;  // dictionary: the JSON object of strings
  bool operator==(const SetPrefArguments&) const = default;
};
Parsed<SetPrefArguments> parseSetPref(const Words& words);
Parsed<std::string> parseRemovePref(const Words& words);

struct SendReportArguments {
  std::optional<std::string> event;
  std::optional<std::string> campaignUuid;
  std::optional<std::string> userKeyType;
  bool operator==(const SendReportArguments&) const = default;
};
// [event=E] [campaign=C] [type=T]: a missing word is absent, "event=" is the empty string.
Parsed<SendReportArguments> parseSendReport(const Words& words);

// [IDENTIFIER]: absent means the current device.
Parsed<std::optional<std::string>> parseDevice(const Words& words);

struct RequestArguments {
  zelnora_core::APIEndpoint endpoint = zelnora_core::APIEndpoint::sendAppTracking;
  zelnora_core::HTTPMethod method = zelnora_core::HTTPMethod::get;
  std::optional<std::map<std::string, std::string>> path;        // from path.K=V words
  std::optional<std::map<std::string, std::string>> parameters;  // from param.K=V words
  std::optional<std::string> body;                               // from body=TEXT
  bool operator==(const RequestArguments&) const = default;
};
// ENDPOINT METHOD [path.K=V ...] [param.K=V ...] [body=TEXT], by case names ("sendAppTracking",
// "post"; the method case "delete" is written as in the service's vocabulary).
Parsed<RequestArguments> parseRequest(const Words& words);

// "ENDPOINT: getCampaign, ...; METHOD: get, ...": the case names parseRequest accepts.
std::string requestCaseNames();

// Commands that take no arguments.
Parsed<bool> parseNoArguments(const Words& words);

std::optional<zelnora_core::APIEndpoint> endpointFromCaseName(std::string_view name);
std::optional<zelnora_core::HTTPMethod> methodFromCaseName(std::string_view name);

}  // namespace zelnora_host
