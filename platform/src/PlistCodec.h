// Property-list bytes to typed values and back (libplist underneath), with the bounds that keep
// libplist's recursive parser and free() safe. Internal to the platform layer.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/PropertyValue.h"

namespace platform::detail {

// Deepest nesting of arrays and dictionaries accepted when reading or writing.
inline constexpr int kMaxPropertyListDepth = 64;
// Largest property-list file or byte string read.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{4} << 20;
// Most values a binary property list may expand to (shared objects are expanded by each reference).
inline constexpr std::size_t kMaxPropertyListValues = std::size_t{1} << 18;

// True when the binary property list's object graph, expanded from its root, nests no deeper than
// kMaxPropertyListDepth and holds at most kMaxPropertyListValues values; false when it is
// malformed.
bool binaryPropertyListWithinBounds(std::string_view bytes);
// True when the XML document's elements nest no deeper than the property-list bound allows.
bool xmlPropertyListWithinBounds(std::string_view text);

// The binary property-list encoding of `value`; absent when it cannot be encoded (text that is not
// UTF-8 or holds NUL, a date out of range, nesting deeper than kMaxPropertyListDepth).
std::optional<Bytes> encodeBinaryPropertyList(const PropertyValue& value);

}  // namespace platform::detail
