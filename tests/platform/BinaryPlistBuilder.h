// Writes binary property lists byte by byte ("bplist00", object table, offset table, trailer), so
// that reader tests do not depend on the writer under test.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::testing {

class BinaryPlistBuilder {
 public:
  using Ref = std::uint32_t;

  Ref string(std::string_view ascii) { return add(header(0x5, ascii.size()) + std::string(ascii)); }
  // UTF-16 text given as code units (written big-endian); any units, paired or not.
  Ref utf16String(const std::vector<std::uint16_t>& units) {
    std::string object = header(0x6, units.size());
    for (const std::uint16_t unit : units) object += bigEndian(unit, 2);
    return add(std::move(object));
  }
  Ref data(std::string_view bytes) { return add(header(0x4, bytes.size()) + std::string(bytes)); }
  Ref integer(std::int64_t value) {
    return add("\x13" + bigEndian(static_cast<std::uint64_t>(value), 8));
  }
  Ref real(double value) { return add("\x23" + bigEndian(bitsOf(value), 8)); }
  Ref date(double secondsSince2001) { return add("\x33" + bigEndian(bitsOf(secondsSince2001), 8)); }
  Ref boolean(bool value) { return add(std::string(1, value ? '\x09' : '\x08')); }
  Ref array(const std::vector<Ref>& items) {
    std::string object = header(0xA, items.size());
    for (const Ref item : items) object += bigEndian(item, kRefSize);
    return add(std::move(object));
  }
  Ref dictionary(const std::vector<std::pair<Ref, Ref>>& entries) {
    std::string object = header(0xD, entries.size());
    for (const auto& entry : entries) object += bigEndian(entry.first, kRefSize);
    for (const auto& entry : entries) object += bigEndian(entry.second, kRefSize);
    return add(std::move(object));
  }

  std::string finish(Ref root) const {
    std::string out = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (const std::string& object : objects_) {
      offsets.push_back(out.size());
      out += object;
    }
    const std::uint64_t tableOffset = out.size();
    for (const std::uint64_t offset : offsets) out += bigEndian(offset, kOffsetSize);
    out += std::string(6, '\0');
    out += static_cast<char>(kOffsetSize);
    out += static_cast<char>(kRefSize);
    out += bigEndian(objects_.size(), 8) + bigEndian(root, 8) + bigEndian(tableOffset, 8);
    return out;
  }

 private:
  static constexpr std::size_t kRefSize = 4, kOffsetSize = 4;

  Ref add(std::string object) {
    objects_.push_back(std::move(object));
    return static_cast<Ref>(objects_.size() - 1);
  }
  static std::string header(unsigned kind, std::size_t count) {
    if (count < 15) return std::string(1, static_cast<char>((kind << 4) | count));
    return std::string(1, static_cast<char>((kind << 4) | 0xF)) + "\x12" + bigEndian(count, 4);
  }
  static std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string out(width, '\0');
    for (std::size_t i = 0; i < width; ++i)
      out[width - 1 - i] = static_cast<char>(value >> (8 * i));
    return out;
  }
  static std::uint64_t bitsOf(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
  }

  std::vector<std::string> objects_;
};

}  // namespace platform::testing
