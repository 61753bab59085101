// Property-list bytes to typed values and back (libplist underneath), with the bounds that keep
// libplist's recursive parser and free() safe. Internal to the platform layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/Bytes.h"
#include "platform/PropertyValue.h"

namespace platform::detail {

// Owns a libplist node (plist_t) and frees it with plist_free.
struct PlistFree {
  void operator()(void* node) const;
};
using PlistNode = std::unique_ptr<void, PlistFree>;

// Text that survives libplist both ways: valid UTF-8 without NUL (libplist takes text as C
// strings and converts it to UTF-16, hands over an XML list's bytes unchecked, and its getters
// abort on a NUL). Reading refuses other text; writing refuses it too.
bool isStorableText(std::string_view text);

// Deepest nesting of arrays and dictionaries accepted when reading or writing. libplist parses
// and frees recursively, and so do the conversion to values and their copies: reading a list 512
// levels deep took 174 KiB of stack (1,024 levels: 341 KiB), which still leaves room on a thread
// with a 256 KiB stack.
inline constexpr int kMaxPropertyListDepth = 512;
// Largest property-list file or byte string read.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{4} << 20;
// Most values a binary property list may expand to (shared objects are expanded by each reference).
inline constexpr std::size_t kMaxPropertyListValues = std::size_t{1} << 18;

// True when the binary property list's object graph, expanded from its root, nests no deeper than
// kMaxPropertyListDepth and holds at most kMaxPropertyListValues values; false when it is
// malformed or holds what libplist would not read faithfully (NUL or an unpaired surrogate in
// text, a date that is not carriable). Appends the exact value of every date it holds to `dates`.
bool binaryPropertyListWithinBounds(std::string_view bytes, std::vector<double>& dates);
// True when the XML document's elements nest no deeper than the property-list bound allows.
bool xmlPropertyListWithinBounds(std::string_view text);

// True for dates (seconds since 2001) that libplist can carry: finite, with whole seconds that
// fit 32 bits once truncated toward zero. Reading refuses other dates; writing refuses them too,
// and also those it cannot hand libplist as 32-bit seconds below the date plus microseconds
// (before -2^31 s, or at 2^31 - 0.5 µs and later).
bool isCarriableDate(double secondsSinceReferenceDate);

// How libplist 2.2 reports a binary date it reads: whole seconds and microseconds, both truncated
// toward zero, the microseconds without their sign (-35.88 and -34.12 become (-35, 880000) and
// (-34, 120000); -0.5 looks like +0.5), packed into one number. Different dates with the same key
// cannot be told apart after libplist has read them.
std::int64_t libplistDateKey(std::int32_t wholeSeconds, std::int32_t microseconds);
std::int64_t libplistDateKey(double carriableSecondsSinceReferenceDate);

// The binary property-list encoding of `value`, written by libplist. Dates are kept to the
// microsecond: a date d is stored as the double libplist makes of s = floor(d) seconds plus
// u = round((d - s) * 1e6) microseconds, so it reads back within 0.5 µs + 2^-23 s (under 0.62 µs;
// the 2^-23 s is libplist's rounding of the sum), and a date read back stores as the same s and u
// again: nothing drifts. Absent when the value could not be read back as stored: text that is not
// UTF-8 or holds NUL, a date outside the range above or one whose stored value shares its libplist
// key with a different stored date in the value, nesting deeper than kMaxPropertyListDepth, more
// than kMaxPropertyListValues values, or output longer than kMaxPropertyListBytes.
// libplist writes equal texts, numbers and dates once, but equal data objects only now and then
// (it finds them by address), so such a value's bytes and length can differ between calls.
std::optional<Bytes> encodeBinaryPropertyList(const PropertyValue& value);

}  // namespace platform::detail
