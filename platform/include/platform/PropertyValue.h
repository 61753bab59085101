/// \file
/// Typed values as property lists and the user-defaults suite hold them: text, data, dictionaries,
/// arrays, numbers, Booleans and dates. Text and data are different types: a string is never bytes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Bytes.h"
#include "platform/export.h"

namespace platform {

struct PropertyValue;
using PropertyDictionary = std::map<std::string, PropertyValue>;
using PropertyArray = std::vector<PropertyValue>;

/// Seconds since 2001-01-01 00:00:00 UTC, as property lists store dates.
struct ZELNORA_PLATFORM_EXPORT PropertyDate {
  double secondsSinceReferenceDate = 0;
  bool operator==(const PropertyDate&) const = default;
};

struct ZELNORA_PLATFORM_EXPORT PropertyValue {
  using Variant = std::variant<std::string, Bytes, PropertyDictionary, PropertyArray, std::int64_t,
                               double, bool, PropertyDate>;
  Variant value;

  PropertyValue() = default;
  // Constrained to what the variant holds, so it never competes with copy or move.
  template <typename T>  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload)
  requires std::is_constructible_v<Variant, T&&> PropertyValue(T&& v)
      : value(std::forward<T>(v)) {}  // NOLINT(google-explicit-constructor)
  PropertyValue(const char* text)
      : value(std::string(text)) {}  // NOLINT(google-explicit-constructor)

  const std::string* string() const { return std::get_if<std::string>(&value); }
  const Bytes* data() const { return std::get_if<Bytes>(&value); }
  const PropertyDictionary* dictionary() const { return std::get_if<PropertyDictionary>(&value); }
  const PropertyArray* array() const { return std::get_if<PropertyArray>(&value); }

  bool operator==(const PropertyValue&) const = default;
};

/// A dictionary whose values are all text, as headers are stored; absent when any value is not
/// text.
ZELNORA_PLATFORM_EXPORT std::optional<std::map<std::string, std::string>> asStringDictionary(
    const PropertyValue& value);

ZELNORA_PLATFORM_EXPORT PropertyValue
makeStringDictionary(const std::map<std::string, std::string>& map);

}  // namespace platform
