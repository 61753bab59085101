// Fuzz target: property-list bytes (binary and XML) as a host bundle or a damaged suite holds them.
// Parsing must never crash, hang or leak; what parses must be storable in the binary encoding the
// suite uses and read back from it unchanged.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

#include "../platform/src/PlistCodec.h"
#include "platform/PropertyListReader.h"
#include "platform/PropertyValue.h"

namespace {

bool sameValue(const platform::PropertyValue& lhs, const platform::PropertyValue& rhs);

bool sameDouble(double lhs, double rhs) {
  return lhs == rhs || (std::isnan(lhs) && std::isnan(rhs));
}

bool sameDictionary(const platform::PropertyDictionary& lhs,
                    const platform::PropertyDictionary& rhs) {
  if (lhs.size() != rhs.size()) return false;
  for (auto left = lhs.begin(), right = rhs.begin(); left != lhs.end(); ++left, ++right) {
    if (left->first != right->first || !sameValue(left->second, right->second)) return false;
  }
  return true;
}

bool sameArray(const platform::PropertyArray& lhs, const platform::PropertyArray& rhs) {
  if (lhs.size() != rhs.size()) return false;
  for (std::size_t i = 0; i < lhs.size(); ++i) {
    if (!sameValue(lhs[i], rhs[i])) return false;
  }
  return true;
}

// Equality with NaN equal to NaN (dates are never NaN); depth is bounded by the reader's nesting
// limit.
bool sameValue(const platform::PropertyValue& lhs, const platform::PropertyValue& rhs) {
  if (lhs.value.index() != rhs.value.index()) return false;
  if (const auto* number = std::get_if<double>(&lhs.value)) {
    return sameDouble(*number, std::get<double>(rhs.value));
  }
  if (const auto* dictionary = lhs.dictionary())
    return sameDictionary(*dictionary, *rhs.dictionary());
  if (const auto* array = lhs.array()) return sameArray(*array, *rhs.array());
  return lhs == rhs;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::optional<platform::PropertyValue> parsed = platform::parsePropertyList(bytes);
  if (!parsed) return 0;
  // Reading refuses what the encoder could not store (text that is not UTF-8, dates libplist cannot
  // carry or tell apart), so every value read must encode.
  const std::optional<platform::Bytes> encoded =
      platform::detail::encodeBinaryPropertyList(*parsed);
  if (!encoded) __builtin_trap();
  const std::optional<platform::PropertyValue> reread = platform::parsePropertyList(
      std::string_view(reinterpret_cast<const char*>(encoded->data()), encoded->size()));
  if (!reread || !sameValue(*parsed, *reread)) __builtin_trap();
  return 0;
}
