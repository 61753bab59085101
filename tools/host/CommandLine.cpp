#include "CommandLine.h"

#include <array>
#include <cmath>
#include <cstdlib>

#include <nlohmann/json.hpp>

namespace zelnora_host {
namespace {

using zelnora_core::APIEndpoint;
using zelnora_core::HTTPMethod;

constexpr std::array<std::pair<std::string_view, APIEndpoint>, 7> kEndpoints{{
    {"getCampaign", APIEndpoint::getCampaign},
    {"sendTracking", APIEndpoint::sendTracking},
    {"sendAppTracking", APIEndpoint::sendAppTracking},
    {"sendPollAnswers", APIEndpoint::sendPollAnswers},
    {"registerInVqx", APIEndpoint::registerInVqx},
    {"unregisterInVqx", APIEndpoint::unregisterInVqx},
    {"vqxCallback", APIEndpoint::vqxCallback},
}};

constexpr std::array<std::pair<std::string_view, HTTPMethod>, 4> kMethods{{
    {"get", HTTPMethod::get},
    {"post", HTTPMethod::post},
    {"put", HTTPMethod::put},
    {"delete", HTTPMethod::delete_},
}};

template <typename T>
Parsed<T> usage(std::string_view text) {
  return Parsed<T>::failure("usage: " + std::string(text));
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::optional<std::map<std::string, std::string>> jsonObjectOfStrings(const std::string& text) {
  nlohmann::json parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
  std::map<std::string, std::string> map;
  for (const auto& [key, value] : parsed.items()) {
    if (!value.is_string()) return std::nullopt;
    map[key] = value.get<std::string>();
  }
  return map;
}

// Adds the key=value `word` after `prefix` to `map`; false when the word has no name.
bool addPrefixed(std::string_view word, std::string_view prefix,
                 std::optional<std::map<std::string, std::string>>& map) {
  auto pair = splitKeyValue(word.substr(prefix.size()));
  if (!pair || pair->first.empty()) return false;
  if (!map) map.emplace();
  (*map)[pair->first] = pair->second;
  return true;
}

}  // namespace

std::string requestCaseNames() {
  std::string text = "ENDPOINT: ";
  for (const auto& [name, endpoint] : kEndpoints) text += std::string(name) + ", ";
  text.replace(text.size() - 2, 2, "; METHOD: ");
  for (const auto& [name, method] : kMethods) text += std::string(name) + ", ";
  return text.substr(0, text.size() - 2);
}

Parsed<HostArguments> parseHostArguments(const std::vector<std::string>& arguments) {
  constexpr std::string_view kUsage =
      "zelnora-host [--bundle DIR] [COMMAND ...] (--help lists them)";
  HostArguments parsed;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const bool option = parsed.commandLines.empty() && arguments[i].starts_with("-");
    if (option && (arguments[i] == "--help" || arguments[i] == "-h")) {
      parsed.help = true;
    } else if (option && arguments[i] == "--bundle") {
      if (i + 1 >= arguments.size() || parsed.bundleDirectory) return usage<HostArguments>(kUsage);
      parsed.bundleDirectory = arguments[++i];
    } else if (option) {
      return Parsed<HostArguments>::failure("unknown option \"" + arguments[i] +
                                            "\"; see zelnora-host --help");
    } else {
      parsed.commandLines.push_back(arguments[i]);
    }
  }
  return Parsed<HostArguments>::success(std::move(parsed));
}

Parsed<std::vector<std::string>> splitCommandLine(std::string_view line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
      word.push_back(line[++i]);
      inWord = true;
    } else if (c == '"') {
      quoted = !quoted;
      inWord = true;
    } else if (isBlank(c) && !quoted) {
      if (inWord) words.push_back(std::move(word));
      word.clear();
      inWord = false;
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (quoted) return Parsed<std::vector<std::string>>::failure("unterminated quote");
  if (inWord) words.push_back(std::move(word));
  return Parsed<std::vector<std::string>>::success(std::move(words));
}

std::optional<std::pair<std::string, std::string>> splitKeyValue(std::string_view word) {
  auto equals = word.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return std::pair{std::string(word.substr(0, equals)), std::string(word.substr(equals + 1))};
}

Parsed<InitializeArguments> parseInitialize(const Words& words) {
  constexpr std::string_view kUsage = "initialize KEY [debug=true|false]";
  if (words.empty() || words.size() > 2) return usage<InitializeArguments>(kUsage);
  InitializeArguments parsed{words[0], std::nullopt};
  if (words.size() == 2) {
    if (words[1] == "debug=true") {
      parsed.debugMode = true;
    } else if (words[1] == "debug=false") {
      parsed.debugMode = false;
    } else {
      return usage<InitializeArguments>(kUsage);
    }
  }
  return Parsed<InitializeArguments>::success(std::move(parsed));
}

Parsed<std::chrono::milliseconds> parseWait(const Words& words) {
  constexpr std::string_view kUsage = "wait [SECONDS]";
  if (words.empty()) return Parsed<std::chrono::milliseconds>::success(std::chrono::seconds(10));
  if (words.size() > 1) return usage<std::chrono::milliseconds>(kUsage);
  const std::string& text = words[0];
  char* end = nullptr;
  double seconds = std::strtod(text.c_str(), &end);
  bool plainNumber = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
  if (!plainNumber || *end != '\0' || !std::isfinite(seconds) || seconds > 86400) {
    return usage<std::chrono::milliseconds>(kUsage);
  }
  return Parsed<std::chrono::milliseconds>::success(
      std::chrono::milliseconds(static_cast<std::int64_t>(std::llround(seconds * 1000))));
}

Parsed<std::string> parseSetUserId(const Words& words) {
  if (words.size() != 1) return usage<std::string>("set-user-id ID");
  return Parsed<std::string>::success(words[0]);
}

Parsed<std::map<std::string, std::string>> parseCustomHeaders(const Words& words) {
  std::map<std::string, std::string> headers;
  for (const std::string& word : words) {
    auto pair = splitKeyValue(word);
    if (!pair || pair->first.empty()) {
      return usage<std::map<std::string, std::string>>("set-custom-headers [NAME=VALUE ...]");
    }
    headers[pair->first] = pair->second;
  }
  return Parsed<std::map<std::string, std::string>>::success(std::move(headers));
}

Parsed<SetPrefArguments> parseSetPref(const Words& words) {
  constexpr std::string_view kUsage =
      "set-pref KEY data|string|dictionary VALUE (dictionary: a JSON object of strings)";
  if (words.size() != 3) return usage<SetPrefArguments>(kUsage);
  SetPrefArguments parsed;
  parsed.key = words[0];
  if (words[1] == "data" || words[1] == "string") {
    parsed.type = words[1] == "data" ? PrefType::data : PrefType::string;
    parsed.text = words[2];
  } else if (words[1] == "dictionary") {
    auto dictionary = jsonObjectOfStrings(words[2]);
    if (!dictionary) return usage<SetPrefArguments>(kUsage);
    parsed.type = PrefType::dictionary;
    parsed.dictionary = std::move(*dictionary);
  } else {
    return usage<SetPrefArguments>(kUsage);
  }
  return Parsed<SetPrefArguments>::success(std::move(parsed));
}

Parsed<std::string> parseRemovePref(const Words& words) {
  if (words.size() != 1) return usage<std::string>("remove-pref KEY");
  return Parsed<std::string>::success(words[0]);
}

Parsed<SendReportArguments> parseSendReport(const Words& words) {
  constexpr std::string_view kUsage = "send-report [event=E] [campaign=C] [type=T]";
  SendReportArguments parsed;
  for (const std::string& word : words) {
    auto pair = splitKeyValue(word);
    if (!pair) return usage<SendReportArguments>(kUsage);
    std::optional<std::string>* slot = pair->first == "event"      ? &parsed.event
                                       : pair->first == "campaign" ? &parsed.campaignUuid
                                       : pair->first == "type"     ? &parsed.userKeyType
                                                                   : nullptr;
    if (slot == nullptr || slot->has_value()) return usage<SendReportArguments>(kUsage);
    *slot = pair->second;
  }
  return Parsed<SendReportArguments>::success(std::move(parsed));
}

Parsed<std::optional<std::string>> parseDevice(const Words& words) {
  if (words.size() > 1) return usage<std::optional<std::string>>("device [IDENTIFIER]");
  std::optional<std::string> identifier;
  if (!words.empty()) identifier = words[0];
  return Parsed<std::optional<std::string>>::success(std::move(identifier));
}

Parsed<RequestArguments> parseRequest(const Words& words) {
  const std::string kUsage =
      "request ENDPOINT METHOD [path.K=V ...] [param.K=V ...] [body=TEXT] (" + requestCaseNames() +
      ")";
  if (words.size() < 2) return usage<RequestArguments>(kUsage);
  auto endpoint = endpointFromCaseName(words[0]);
  auto method = methodFromCaseName(words[1]);
  if (!endpoint || !method) return usage<RequestArguments>(kUsage);
  RequestArguments parsed;
  parsed.endpoint = *endpoint;
  parsed.method = *method;
  for (std::size_t i = 2; i < words.size(); ++i) {
    std::string_view word = words[i];
    bool ok = false;
    if (word.starts_with("path.")) {
      ok = addPrefixed(word, "path.", parsed.path);
    } else if (word.starts_with("param.")) {
      ok = addPrefixed(word, "param.", parsed.parameters);
    } else if (word.starts_with("body=") && !parsed.body) {
      parsed.body = std::string(word.substr(5));
      ok = true;
    }
    if (!ok) return usage<RequestArguments>(kUsage);
  }
  return Parsed<RequestArguments>::success(std::move(parsed));
}

Parsed<bool> parseNoArguments(const Words& words) {
  if (!words.empty()) return Parsed<bool>::failure("this command takes no arguments");
  return Parsed<bool>::success(true);
}

std::optional<APIEndpoint> endpointFromCaseName(std::string_view name) {
  for (const auto& [caseName, endpoint] : kEndpoints) {
    if (caseName == name) return endpoint;
  }
  return std::nullopt;
}

std::optional<HTTPMethod> methodFromCaseName(std::string_view name) {
  for (const auto& [caseName, method] : kMethods) {
    if (caseName == name) return method;
  }
  return std::nullopt;
}

}  // namespace zelnora_host
