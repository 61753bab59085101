#include "ReportCheck.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <nlohmann/json.hpp>

namespace zelnora_tools {
namespace {

constexpr std::array<std::string_view, 5> kAlwaysPresent = {"brand", "hardware", "manufacturer",
                                                            "model", "eventDate"};
constexpr std::array<std::string_view, 21> kKnownMembers = {
    "deviceId", "appVersion", "appId",     "sdkVersion", "brand",     "hardware", "manufacturer",
    "model",    "product",    "osVersion", "os",         "eventDate", "carrier",  "battery",
    "lat",      "long",       "adId",      "userId",     "event",     "t",        "campaignUuid"};

bool isUpperHex(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) || (c >= 'A' && c <= 'F');
}

bool isUpperCaseUuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !isUpperHex(text[i])) return false;
  }
  return true;
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
  });
}

// Milliseconds from 1973 on: 12 or 13 digits without a leading zero. Seconds (10 digits) fail.
bool isMilliseconds(std::string_view text) {
  return allDigits(text) && text[0] != '0' && text.size() >= 12 && text.size() <= 13;
}

// "2.3.0(41)": a version and a build, each without blanks or parentheses.
bool isSdkVersion(std::string_view text) {
  const auto open = text.find('(');
  if (open == 0 || open == std::string_view::npos || !text.ends_with(')')) return false;
  const std::string_view version = text.substr(0, open);
  const std::string_view build = text.substr(open + 1, text.size() - open - 2);
  auto plain = [](std::string_view part) {
    return !part.empty() && part.find_first_of(" \t()") == std::string_view::npos;
  };
  return plain(version) && plain(build);
}

bool isKnown(const std::string& member) {
  return std::find(kKnownMembers.begin(), kKnownMembers.end(), member) != kKnownMembers.end();
}

std::string inQuotes(std::string_view name) { return "\"" + std::string(name) + "\""; }

void checkValue(const std::string& name, const std::string& value, std::vector<std::string>& out) {
  if (name == "deviceId" && !isUpperCaseUuid(value))
    out.push_back("\"deviceId\" is not an upper-case UUID");
  if (name == "eventDate" && !isMilliseconds(value)) {
    out.push_back("\"eventDate\" is not milliseconds since 1970");
  }
  if (name == "sdkVersion" && !isSdkVersion(value))
    out.push_back("\"sdkVersion\" is not VERSION(BUILD)");
  if ((name == "brand" || name == "manufacturer") && value != "Apple") {
    out.push_back(inQuotes(name) + " is not \"Apple\"");
  }
}

std::vector<std::string> eventProblems(const nlohmann::json& event) {
  if (!event.is_object()) return {"is not an object"};
  std::vector<std::string> found;
  for (std::string_view name : kAlwaysPresent) {
    if (!event.contains(name)) found.push_back(inQuotes(name) + " is missing");
  }
  for (const auto& [name, value] : event.items()) {
    if (!isKnown(name)) found.push_back("unexpected member " + inQuotes(name));
    if (!value.is_string()) {
      found.push_back(inQuotes(name) + " is not a string");
    } else {
      checkValue(name, value.get<std::string>(), found);
    }
  }
  return found;
}

}  // namespace

std::vector<std::string> reportProblems(std::string_view body) {
  const auto report = nlohmann::json::parse(body, nullptr, /*allow_exceptions=*/false);
  if (report.is_discarded()) return {"the body is not JSON"};
  if (!report.is_object() || !report.contains("events") || !report["events"].is_array()) {
    return {"the body has no \"events\" list"};
  }
  if (report["events"].empty()) return {"the \"events\" list is empty"};
  std::vector<std::string> problems;
  std::size_t number = 0;
  for (const auto& event : report["events"]) {
    ++number;
    for (const std::string& problem : eventProblems(event)) {
      problems.push_back("event " + std::to_string(number) + ": " + problem);
    }
  }
  for (const auto& [name, value] : report.items()) {
    if (name != "events") problems.push_back("unexpected member " + inQuotes(name));
  }
  return problems;
}

}  // namespace zelnora_tools
