// Fuzz target: property-list bytes (binary and XML) as a host bundle or a damaged suite holds them.
// Parsing must never crash, hang or leak; what parses and can be stored in the suite's binary
// encoding must read back the same (dates to the microsecond) and store again to the same bytes.
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <variant>

#include "platform/PropertyListReader.h"
#include "platform/PropertyValue.h"
#include "platform/src/PlistCodec.h"

namespace {

// A stored date is rounded to the microsecond (0.5 µs) and libplist rounds seconds + microseconds
// / 1e6 once more (at most 2^-23 s for 32-bit seconds); 1e-15 s covers the smaller roundings.
constexpr double kStoredDateTolerance = 5e-7 + 0x1p-23 + 1e-15;

struct Comparison {
  double dateTolerance;  // 0: dates to the bit
};

bool sameValue(const platform::PropertyValue& lhs, const platform::PropertyValue& rhs,
               Comparison comparison);

// Reals are written bit for bit (-0.0 stays -0.0); any NaN equals any NaN.
bool sameReal(double lhs, double rhs) {
  return std::bit_cast<std::uint64_t>(lhs) == std::bit_cast<std::uint64_t>(rhs) ||
         (std::isnan(lhs) && std::isnan(rhs));
}

bool sameDate(double lhs, double rhs, Comparison comparison) {
  if (comparison.dateTolerance == 0) {
    return std::bit_cast<std::uint64_t>(lhs) == std::bit_cast<std::uint64_t>(rhs);
  }
  return std::fabs(lhs - rhs) <= comparison.dateTolerance;
}

bool sameDictionary(const platform::PropertyDictionary& lhs,
                    const platform::PropertyDictionary& rhs, Comparison comparison) {
  if (lhs.size() != rhs.size()) return false;
  for (auto left = lhs.begin(), right = rhs.begin(); left != lhs.end(); ++left, ++right) {
    if (left->first != right->first || !sameValue(left->second, right->second, comparison)) {
      return false;
    }
  }
  return true;
}

bool sameArray(const platform::PropertyArray& lhs, const platform::PropertyArray& rhs,
               Comparison comparison) {
  if (lhs.size() != rhs.size()) return false;
  for (std::size_t i = 0; i < lhs.size(); ++i) {
    if (!sameValue(lhs[i], rhs[i], comparison)) return false;
  }
  return true;
}

// Depth is bounded by the reader's nesting limit.
bool sameValue(const platform::PropertyValue& lhs, const platform::PropertyValue& rhs,
               Comparison comparison) {
  if (lhs.value.index() != rhs.value.index()) return false;
  if (const auto* number = std::get_if<double>(&lhs.value)) {
    return sameReal(*number, std::get<double>(rhs.value));
  }
  if (const auto* date = std::get_if<platform::PropertyDate>(&lhs.value)) {
    return sameDate(date->secondsSinceReferenceDate,
                    std::get<platform::PropertyDate>(rhs.value).secondsSinceReferenceDate,
                    comparison);
  }
  if (const auto* dictionary = lhs.dictionary()) {
    return sameDictionary(*dictionary, *rhs.dictionary(), comparison);
  }
  if (const auto* array = lhs.array()) return sameArray(*array, *rhs.array(), comparison);
  return lhs == rhs;
}

// libplist 2.2 writes equal data objects once only when it happens to find them (it looks them up
// by node address), so the bytes of a value holding equal data twice vary from call to call.
bool holdsEqualDataTwice(const platform::PropertyValue& value, std::set<platform::Bytes>& seen) {
  if (const auto* bytes = value.data()) return !seen.insert(*bytes).second;
  if (const auto* dictionary = value.dictionary()) {
    for (const auto& [key, entry] : *dictionary) {
      if (holdsEqualDataTwice(entry, seen)) return true;
    }
  }
  if (const auto* array = value.array()) {
    for (const auto& entry : *array) {
      if (holdsEqualDataTwice(entry, seen)) return true;
    }
  }
  return false;
}

std::optional<platform::PropertyValue> read(const platform::Bytes& bytes) {
  return platform::parsePropertyList(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::optional<platform::PropertyValue> parsed = platform::parsePropertyList(bytes);
  if (!parsed) return 0;
  // The encoder may refuse a value read (dates it cannot hand libplist, stored dates libplist
  // would read alike, output past the readable size); what it writes must read back.
  const std::optional<platform::Bytes> encoded =
      platform::detail::encodeBinaryPropertyList(*parsed);
  if (!encoded) return 0;
  const std::optional<platform::PropertyValue> reread = read(*encoded);
  if (!reread || !sameValue(*parsed, *reread, {kStoredDateTolerance})) __builtin_trap();
  // Stored once, a value stays put: the second store writes the same bytes.
  const std::optional<platform::Bytes> encodedAgain =
      platform::detail::encodeBinaryPropertyList(*reread);
  std::set<platform::Bytes> seen;
  if (!holdsEqualDataTwice(*parsed, seen)) {
    if (encodedAgain != encoded) __builtin_trap();
    return 0;
  }
  // With equal data twice only the value is compared, dates to the bit; its length varies, so
  // the second store may be refused.
  if (!encodedAgain) return 0;
  const std::optional<platform::PropertyValue> rereadAgain = read(*encodedAgain);
  if (!rereadAgain || !sameValue(*reread, *rereadAgain, {0})) __builtin_trap();
  return 0;
}
