#include "PlistCodec.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include <plist/plist.h>

namespace platform::detail {
namespace {

struct PlistFree {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistNode = std::unique_ptr<void, PlistFree>;

// libplist takes text as C strings and converts it to UTF-16: only valid UTF-8 without NUL
// survives the round trip unchanged.
bool isEncodableText(const std::string& text) {
  return text.find('\0') == std::string::npos && isValidUtf8(text);
}

PlistNode makeNode(const PropertyValue& value, int depth);

PlistNode makeDictionary(const PropertyDictionary& dictionary, int depth) {
  PlistNode node(plist_new_dict());
  for (const auto& [key, entry] : dictionary) {
    if (!isEncodableText(key)) return nullptr;
    PlistNode item = makeNode(entry, depth + 1);
    if (!item) return nullptr;
    plist_dict_set_item(node.get(), key.c_str(), item.release());
  }
  return node;
}

PlistNode makeArray(const PropertyArray& array, int depth) {
  PlistNode node(plist_new_array());
  for (const PropertyValue& entry : array) {
    PlistNode item = makeNode(entry, depth + 1);
    if (!item) return nullptr;
    plist_array_append_item(node.get(), item.release());
  }
  return node;
}

PlistNode makeDate(const PropertyDate& date) {
  const double seconds = std::floor(date.secondsSinceReferenceDate);
  if (!std::isfinite(seconds) || seconds < INT32_MIN || seconds > INT32_MAX) return nullptr;
  auto microseconds =
      static_cast<std::int32_t>(std::lround((date.secondsSinceReferenceDate - seconds) * 1e6));
  auto wholeSeconds = static_cast<std::int64_t>(seconds);
  if (microseconds >= 1000000) {
    microseconds -= 1000000;
    ++wholeSeconds;
  }
  if (wholeSeconds > INT32_MAX) return nullptr;
  return PlistNode(plist_new_date(static_cast<std::int32_t>(wholeSeconds), microseconds));
}

PlistNode makeNode(const PropertyValue& value, int depth) {
  const auto& v = value.value;
  if (const auto* text = std::get_if<std::string>(&v)) {
    return isEncodableText(*text) ? PlistNode(plist_new_string(text->c_str())) : nullptr;
  }
  if (const auto* bytes = std::get_if<Bytes>(&v)) {
    return PlistNode(plist_new_data(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
  }
  if (const auto* dictionary = std::get_if<PropertyDictionary>(&v)) {
    return depth < kMaxPropertyListDepth ? makeDictionary(*dictionary, depth) : nullptr;
  }
  if (const auto* array = std::get_if<PropertyArray>(&v)) {
    return depth < kMaxPropertyListDepth ? makeArray(*array, depth) : nullptr;
  }
  if (const auto* integer = std::get_if<std::int64_t>(&v)) {
    return PlistNode(plist_new_uint(static_cast<std::uint64_t>(*integer)));
  }
  if (const auto* real = std::get_if<double>(&v)) return PlistNode(plist_new_real(*real));
  if (const auto* flag = std::get_if<bool>(&v)) return PlistNode(plist_new_bool(*flag ? 1 : 0));
  return makeDate(std::get<PropertyDate>(v));
}

}  // namespace

std::optional<Bytes> encodeBinaryPropertyList(const PropertyValue& value) {
  const PlistNode root = makeNode(value, 0);
  if (!root) return std::nullopt;
  char* raw = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root.get(), &raw, &length);
  if (raw == nullptr) return std::nullopt;
  const auto* begin = reinterpret_cast<const std::uint8_t*>(raw);
  Bytes bytes(begin, begin + length);
  plist_to_bin_free(raw);
  return bytes;
}

}  // namespace platform::detail
