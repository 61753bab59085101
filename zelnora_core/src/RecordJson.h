// Strict decoding helpers shared by the kit's JSON records.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace zelnora_core::detail {

// Outcome of reading one member: `ok` false means the whole record fails to decode.
struct Member {
  bool ok = true;
  std::optional<std::string> value;
};

// A member that must be present and a string.
inline std::optional<std::string> requiredString(const nlohmann::json& object,
                                                 std::string_view key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

// A member that may be missing or null (absent), and otherwise must be a string.
inline Member optionalString(const nlohmann::json& object, std::string_view key) {
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) return {};
  if (!it->is_string()) return {false, std::nullopt};
  return {true, it->get<std::string>()};
}

}  // namespace zelnora_core::detail
