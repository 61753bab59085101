// Typed values to binary property lists through libplist 2.2, and the date helpers the reader
// shares. libplist keeps a date node as whole seconds plus microseconds, so stored dates are kept
// to the microsecond; what could not be read back as stored is refused here.
#include "PlistCodec.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include <plist/plist.h>

namespace platform::detail {
namespace {

// A date as libplist's plist_new_date takes it, and the double libplist 2.2 computes from that
// pair and writes: (double)seconds + (double)microseconds / 1e6.
struct LibplistDate {
  std::int32_t seconds;
  std::int32_t microseconds;
  double stored;
};

// The date rounded to the microsecond, split as libplist takes it: seconds = floor(date) and
// microseconds in [0, 1e6) (a fraction that rounds to 1e6 carries into the seconds). Absent when
// the seconds do not fit 32 bits.
std::optional<LibplistDate> toLibplistDate(double secondsSinceReferenceDate) {
  const double whole = std::floor(secondsSinceReferenceDate);
  if (!std::isfinite(whole) || whole < INT32_MIN || whole > INT32_MAX) return std::nullopt;
  auto seconds = static_cast<std::int64_t>(whole);
  long microseconds = std::lround((secondsSinceReferenceDate - whole) * 1e6);
  if (microseconds >= 1000000) {
    microseconds -= 1000000;
    ++seconds;
  }
  if (seconds > INT32_MAX) return std::nullopt;
  const auto wholeSeconds = static_cast<std::int32_t>(seconds);
  const auto fraction = static_cast<std::int32_t>(microseconds);
  return LibplistDate{wholeSeconds, fraction,
                      static_cast<double>(wholeSeconds) + static_cast<double>(fraction) / 1000000};
}

// Builds the libplist tree for one value, refusing what the reader would not give back as stored.
class NodeBuilder {
 public:
  PlistNode build(const PropertyValue& value, int depth);

 private:
  PlistNode buildDictionary(const PropertyDictionary& dictionary, int depth);
  PlistNode buildArray(const PropertyArray& array, int depth);
  PlistNode buildDate(const PropertyDate& date);
  // Counts values as the reader does (a dictionary entry is two: key and value).
  bool countValues(std::size_t count) {
    valueCount_ += count;
    return valueCount_ <= kMaxPropertyListValues;
  }

  std::size_t valueCount_ = 1;  // the root
  // Stored date by the key libplist reports when reading it back (see libplistDateKey).
  std::map<std::int64_t, double> storedDatesByKey_;
};

PlistNode NodeBuilder::build(const PropertyValue& value, int depth) {
  const auto& v = value.value;
  if (const auto* text = std::get_if<std::string>(&v)) {
    return isStorableText(*text) ? PlistNode(plist_new_string(text->c_str())) : nullptr;
  }
  if (const auto* bytes = std::get_if<Bytes>(&v)) {
    return PlistNode(plist_new_data(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
  }
  if (const auto* dictionary = std::get_if<PropertyDictionary>(&v)) {
    return depth < kMaxPropertyListDepth ? buildDictionary(*dictionary, depth) : nullptr;
  }
  if (const auto* array = std::get_if<PropertyArray>(&v)) {
    return depth < kMaxPropertyListDepth ? buildArray(*array, depth) : nullptr;
  }
  if (const auto* integer = std::get_if<std::int64_t>(&v)) {
    return PlistNode(plist_new_uint(static_cast<std::uint64_t>(*integer)));
  }
  if (const auto* real = std::get_if<double>(&v)) return PlistNode(plist_new_real(*real));
  if (const auto* flag = std::get_if<bool>(&v)) return PlistNode(plist_new_bool(*flag ? 1 : 0));
  return buildDate(std::get<PropertyDate>(v));
}

PlistNode NodeBuilder::buildDictionary(const PropertyDictionary& dictionary, int depth) {
  if (!countValues(2 * dictionary.size())) return nullptr;
  PlistNode node(plist_new_dict());
  for (const auto& [key, entry] : dictionary) {
    if (!isStorableText(key)) return nullptr;
    PlistNode item = build(entry, depth + 1);
    if (!item) return nullptr;
    plist_dict_set_item(node.get(), key.c_str(), item.release());
  }
  return node;
}

PlistNode NodeBuilder::buildArray(const PropertyArray& array, int depth) {
  if (!countValues(array.size())) return nullptr;
  PlistNode node(plist_new_array());
  for (const PropertyValue& entry : array) {
    PlistNode item = build(entry, depth + 1);
    if (!item) return nullptr;
    plist_array_append_item(node.get(), item.release());
  }
  return node;
}

// The reader tells binary dates apart by the key libplist reports for them, so two different
// stored dates with one key (neighbouring microseconds that libplist truncates alike, or -x and +x
// within the first second) would make the value unreadable: it is refused instead.
PlistNode NodeBuilder::buildDate(const PropertyDate& date) {
  const std::optional<LibplistDate> converted = toLibplistDate(date.secondsSinceReferenceDate);
  if (!converted) return nullptr;
  const auto [known, inserted] =
      storedDatesByKey_.emplace(libplistDateKey(converted->stored), converted->stored);
  if (!inserted && !(known->second == converted->stored)) return nullptr;
  return PlistNode(plist_new_date(converted->seconds, converted->microseconds));
}

}  // namespace

void PlistFree::operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }

bool isStorableText(std::string_view text) {
  return text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

bool isCarriableDate(double secondsSinceReferenceDate) {
  const double whole = std::trunc(secondsSinceReferenceDate);
  return std::isfinite(whole) && whole >= INT32_MIN && whole <= INT32_MAX;
}

std::int64_t libplistDateKey(std::int32_t wholeSeconds, std::int32_t microseconds) {
  return std::int64_t{wholeSeconds} * 1000000 + microseconds;
}

std::int64_t libplistDateKey(double carriableSecondsSinceReferenceDate) {
  const double whole = std::trunc(carriableSecondsSinceReferenceDate);
  const double microseconds = std::fabs((carriableSecondsSinceReferenceDate - whole) * 1e6);
  return libplistDateKey(static_cast<std::int32_t>(whole), static_cast<std::int32_t>(microseconds));
}

// libplist writes equal texts, numbers and dates once and refers to them, but every dictionary and
// array, and most equal data, once per occurrence: a value read from a list that shares those can
// grow past what the reader accepts, and such output is refused.
std::optional<Bytes> encodeBinaryPropertyList(const PropertyValue& value) {
  const PlistNode root = NodeBuilder().build(value, 0);
  if (!root) return std::nullopt;
  char* raw = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root.get(), &raw, &length);
  if (raw == nullptr) return std::nullopt;
  const std::unique_ptr<char, decltype(&plist_to_bin_free)> output(raw, &plist_to_bin_free);
  if (length > kMaxPropertyListBytes) return std::nullopt;
  const auto* begin = reinterpret_cast<const std::uint8_t*>(raw);
  return Bytes(begin, begin + length);
}

}  // namespace platform::detail
