// Plain text helpers shared by the kit.
#pragma once

#include <string>
#include <string_view>

namespace zelnora_core::detail {

// Replaces every occurrence of `from` (non-empty) in `text` by `to`, scanning left to right;
// case-sensitive, no re-scan of inserted text.
inline std::string replacingAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (true) {
    size_t hit = text.find(from, pos);
    if (hit == std::string_view::npos || from.empty()) break;
    out.append(text.substr(pos, hit - pos)).append(to);
    pos = hit + from.size();
  }
  out.append(text.substr(pos));
  return out;
}

// The suffix a notification service extension's bundle identifier carries.
inline constexpr std::string_view kExtensionSuffix = ".ZelnoraAdsNotificationService";

// The host application's identifier as the kit reports it: every extension suffix removed.
inline std::string hostIdentifier(std::string_view bundleIdentifier) {
  return replacingAll(bundleIdentifier, kExtensionSuffix, "");
}

}  // namespace zelnora_core::detail
