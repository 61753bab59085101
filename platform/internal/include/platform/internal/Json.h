/// \file
/// Internal: JSON. Strict parsing into nlohmann::json, and a writer that writes what the phone's
/// default JSON encoder writes (compact, members in insertion order, "/" as "\/"). Kept out of the
/// installed headers so that hosts need no nlohmann/json.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "platform/Bytes.h"
#include "platform/export.h"

namespace platform {

/// Maximum nesting of arrays and objects that parseJson accepts. Parsing is iterative, but
/// copies, dump() and == recurse: at 512 levels each takes under 70 KiB of stack.
inline constexpr int kMaxJsonDepth = 512;

/// Parses one JSON value. Absent on syntax errors, invalid UTF-8, trailing garbage or nesting
/// deeper than kMaxJsonDepth. Never throws.
ZELNORA_PLATFORM_EXPORT std::optional<nlohmann::json> parseJson(std::string_view text);
inline std::optional<nlohmann::json> parseJson(const Bytes& bytes) {
  return parseJson(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

/// Appends `text` as a JSON string literal: escapes `"`, `\` and `/`; writes the short escapes
/// `\b` `\f` `\n` `\r` `\t`; every other byte below 0x20 as `\u00xx` (lower-case hex); everything
/// else (non-ASCII, 0x7F) as it stands.
ZELNORA_PLATFORM_EXPORT void appendJsonString(std::string& out, std::string_view text);

/// Builds one compact JSON object member by member, in call order.
class ZELNORA_PLATFORM_EXPORT JsonObjectWriter {
 public:
  JsonObjectWriter() : text_("{") {}
  JsonObjectWriter& string(std::string_view key, std::string_view value);
  JsonObjectWriter& boolean(std::string_view key, bool value);
  /// `json` must already be valid JSON text (a nested object or array).
  JsonObjectWriter& raw(std::string_view key, std::string_view json);
  std::string finish() &&;

 private:
  void key(std::string_view key);
  std::string text_;
  bool first_ = true;
};

}  // namespace platform
