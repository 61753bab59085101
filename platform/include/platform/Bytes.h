/// \file
/// Byte buffers: request and response bodies, stored JSON, property-list data.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"

namespace platform {

using Bytes = std::vector<std::uint8_t>;

inline Bytes toBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

inline std::string toString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

/// True when `bytes` is well-formed UTF-8 (no overlongs, no surrogates, nothing above U+10FFFF).
ZELNORA_PLATFORM_EXPORT bool isValidUtf8(std::string_view bytes);

/// `bytes` as the phone's string type decodes them: every maximal invalid subsequence (the longest
/// start of a well-formed sequence, or one byte) becomes U+FFFD; valid UTF-8 comes back unchanged.
ZELNORA_PLATFORM_EXPORT std::string repairedUtf8(std::string_view bytes);

}  // namespace platform
