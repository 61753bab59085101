#include "HostText.h"

#include <algorithm>
#include <string_view>

#include "platform/Bytes.h"

namespace zelnora_core::detail {
namespace {

bool isTokenCharacter(char c) {
  constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         kSymbols.find(c) != std::string_view::npos;
}

bool isSendableName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter);
}

bool isSendableValue(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace

std::string hostText(const std::string& text) { return platform::repairedUtf8(text); }

std::optional<std::string> hostText(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return hostText(*text);
}

std::map<std::string, std::string> sendableHeaders(
    const std::map<std::string, std::string>& headers) {
  std::map<std::string, std::string> sendable;
  for (const auto& [name, value] : headers) {
    std::string repairedValue = hostText(value);
    if (isSendableName(name) && isSendableValue(repairedValue)) {
      sendable.emplace(name, std::move(repairedValue));
    }
  }
  return sendable;
}

}  // namespace zelnora_core::detail
