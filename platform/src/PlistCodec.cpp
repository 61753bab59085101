// Typed values to binary property lists ("bplist00"). Written here rather than through libplist
// 2.2, which takes dates only as whole seconds plus microseconds and writes them back 1 µs early
// about half of the time: a stored date must read back exactly.
#include "PlistCodec.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace platform::detail {
namespace {

constexpr std::size_t kReferenceWidth = 4;

// Text must be UTF-8 without NUL: it is stored as ASCII or UTF-16 and read back as UTF-8.
bool isEncodableText(const std::string& text) {
  return text.find('\0') == std::string::npos && isValidUtf8(text);
}

void appendBigEndian(std::string& out, std::uint64_t value, std::size_t width) {
  for (std::size_t i = width; i > 0; --i) out += static_cast<char>(value >> (8 * (i - 1)));
}

std::size_t widthFor(std::uint64_t value) {
  if (value <= 0xFF) return 1;
  if (value <= 0xFFFF) return 2;
  if (value <= 0xFFFFFFFF) return 4;
  return 8;
}

// A non-negative integer object with the smallest width; 8 bytes hold negative ones as two's
// complement.
void appendInteger(std::string& out, std::uint64_t value) {
  const std::size_t width = widthFor(value);
  out += static_cast<char>(0x10 | std::countr_zero(width));
  appendBigEndian(out, value, width);
}

// Object marker with its count: in the low nibble, or 0xF followed by an integer object.
void appendMarker(std::string& out, unsigned kind, std::size_t count) {
  if (count < 0xF) {
    out += static_cast<char>((kind << 4) | count);
    return;
  }
  out += static_cast<char>((kind << 4) | 0xF);
  appendInteger(out, count);
}

// Valid UTF-8 (checked by the caller) to UTF-16 code units.
std::vector<std::uint16_t> utf16Units(const std::string& text) {
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t codePoint = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; k < length; ++k) {
      codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    }
    i += static_cast<std::size_t>(length);
    if (codePoint < 0x10000) {
      units.push_back(static_cast<std::uint16_t>(codePoint));
    } else {
      codePoint -= 0x10000;
      units.push_back(static_cast<std::uint16_t>(0xD800 | (codePoint >> 10)));
      units.push_back(static_cast<std::uint16_t>(0xDC00 | (codePoint & 0x3FF)));
    }
  }
  return units;
}

// Builds the object table depth first. Equal scalars and texts become one shared object, so that a
// value read from a list that shares objects is not written much larger than it was read.
class BinaryWriter {
 public:
  std::optional<std::size_t> add(const PropertyValue& value, int depth);
  Bytes finish(std::size_t root) const;

 private:
  std::size_t reserve() {
    objects_.emplace_back();
    return objects_.size() - 1;
  }
  std::size_t addLeaf(std::string object) {
    const auto [known, inserted] = leaves_.emplace(std::move(object), objects_.size());
    if (inserted) objects_.push_back(known->first);
    return known->second;
  }
  std::optional<std::size_t> addText(const std::string& text);
  std::optional<std::size_t> addDictionary(const PropertyDictionary& dictionary, int depth);
  std::optional<std::size_t> addArray(const PropertyArray& array, int depth);
  std::optional<std::size_t> addScalar(const PropertyValue::Variant& value);
  std::string containerObject(unsigned kind, std::size_t count,
                              const std::vector<std::size_t>& references) const;

  std::vector<std::string> objects_;
  std::unordered_map<std::string, std::size_t> leaves_;
  std::map<std::int64_t, double> datesByKey_;
};

std::optional<std::size_t> BinaryWriter::add(const PropertyValue& value, int depth) {
  if (const auto* text = std::get_if<std::string>(&value.value)) return addText(*text);
  if (const auto* dictionary = value.dictionary()) {
    if (depth >= kMaxPropertyListDepth) return std::nullopt;
    return addDictionary(*dictionary, depth);
  }
  if (const auto* array = value.array()) {
    if (depth >= kMaxPropertyListDepth) return std::nullopt;
    return addArray(*array, depth);
  }
  return addScalar(value.value);
}

std::optional<std::size_t> BinaryWriter::addText(const std::string& text) {
  if (!isEncodableText(text)) return std::nullopt;
  std::string object;
  const bool ascii = std::all_of(text.begin(), text.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) {
    appendMarker(object, 0x5, text.size());
    object += text;
  } else {
    const std::vector<std::uint16_t> units = utf16Units(text);
    appendMarker(object, 0x6, units.size());
    for (const std::uint16_t unit : units) appendBigEndian(object, unit, 2);
  }
  return addLeaf(std::move(object));
}

// Keys and values are written after the dictionary object itself, which refers to them.
std::optional<std::size_t> BinaryWriter::addDictionary(const PropertyDictionary& dictionary,
                                                       int depth) {
  const std::size_t self = reserve();
  std::vector<std::size_t> references;
  for (const auto& [key, entry] : dictionary) {
    const std::optional<std::size_t> keyObject = addText(key);
    if (!keyObject) return std::nullopt;
    references.push_back(*keyObject);
  }
  for (const auto& [key, entry] : dictionary) {
    const std::optional<std::size_t> valueObject = add(entry, depth + 1);
    if (!valueObject) return std::nullopt;
    references.push_back(*valueObject);
  }
  objects_[self] = containerObject(0xD, dictionary.size(), references);
  return self;
}

std::optional<std::size_t> BinaryWriter::addArray(const PropertyArray& array, int depth) {
  const std::size_t self = reserve();
  std::vector<std::size_t> references;
  for (const PropertyValue& entry : array) {
    const std::optional<std::size_t> item = add(entry, depth + 1);
    if (!item) return std::nullopt;
    references.push_back(*item);
  }
  objects_[self] = containerObject(0xA, array.size(), references);
  return self;
}

std::optional<std::size_t> BinaryWriter::addScalar(const PropertyValue::Variant& value) {
  std::string object;
  if (const auto* bytes = std::get_if<Bytes>(&value)) {
    appendMarker(object, 0x4, bytes->size());
    object.append(bytes->begin(), bytes->end());
  } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    appendInteger(object, static_cast<std::uint64_t>(*integer));
  } else if (const auto* real = std::get_if<double>(&value)) {
    object += '\x23';
    appendBigEndian(object, std::bit_cast<std::uint64_t>(*real), 8);
  } else if (const auto* flag = std::get_if<bool>(&value)) {
    object += *flag ? '\x09' : '\x08';
  } else {
    const double seconds = std::get<PropertyDate>(value).secondsSinceReferenceDate;
    if (!isCarriableDate(seconds)) return std::nullopt;
    const auto [known, inserted] = datesByKey_.emplace(libplistDateKey(seconds), seconds);
    if (!inserted && !(known->second == seconds)) return std::nullopt;
    object += '\x33';
    appendBigEndian(object, std::bit_cast<std::uint64_t>(seconds), 8);
  }
  return addLeaf(std::move(object));
}

std::string BinaryWriter::containerObject(unsigned kind, std::size_t count,
                                          const std::vector<std::size_t>& references) const {
  std::string object;
  appendMarker(object, kind, count);
  for (const std::size_t reference : references) {
    appendBigEndian(object, reference, kReferenceWidth);
  }
  return object;
}

// Header, objects, offset table, then the trailer: 6 unused bytes, offset width, reference width,
// object count, root object, offset table position.
Bytes BinaryWriter::finish(std::size_t root) const {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  offsets.reserve(objects_.size());
  for (const std::string& object : objects_) {
    offsets.push_back(out.size());
    out += object;
  }
  const std::uint64_t tableOffset = out.size();
  const std::size_t offsetWidth = widthFor(tableOffset);
  for (const std::uint64_t offset : offsets) appendBigEndian(out, offset, offsetWidth);
  out.append(6, '\0');
  out += static_cast<char>(offsetWidth);
  out += static_cast<char>(kReferenceWidth);
  appendBigEndian(out, objects_.size(), 8);
  appendBigEndian(out, root, 8);
  appendBigEndian(out, tableOffset, 8);
  return Bytes(out.begin(), out.end());
}

}  // namespace

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

std::optional<Bytes> encodeBinaryPropertyList(const PropertyValue& value) {
  BinaryWriter writer;
  const std::optional<std::size_t> root = writer.add(value, 0);
  if (!root) return std::nullopt;
  return writer.finish(*root);
}

}  // namespace platform::detail
