#include "HostText.h"

#include <string_view>

#include "platform/Bytes.h"
#include "platform/internal/HttpText.h"

namespace zelnora_core::detail {

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
    if (platform::http::isToken(name) && platform::http::isSendableValue(repairedValue)) {
      sendable.emplace(name, std::move(repairedValue));
    }
  }
  return sendable;
}

}  // namespace zelnora_core::detail
