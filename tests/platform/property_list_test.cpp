// Property lists: reading XML and binary files into typed values, refusing what cannot be read
// faithfully or safely, and the binary encoding the preferences suite stores.
#include <bit>
#include <cmath>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "platform/PropertyListReader.h"
#include "platform/src/LinuxProviders.h"
#include "platform/src/PlistCodec.h"

namespace platform {
namespace {

using namespace std::string_literals;

std::string bigEndian(std::uint64_t value, std::size_t width) {
  std::string out(width, '\0');
  for (std::size_t i = 0; i < width; ++i) out[width - 1 - i] = static_cast<char>(value >> 8 * i);
  return out;
}

// Writes binary property lists byte by byte, so that reader tests do not depend on the writer.
class BinaryPlist {
 public:
  using Ref = std::uint32_t;
  Ref string(std::string_view ascii) { return add(header(0x5, ascii.size()) + std::string(ascii)); }
  Ref utf16(const std::vector<std::uint16_t>& units) {
    return add(header(0x6, units.size()) + joined(units, 2));
  }
  Ref date(double value) { return add("\x33" + bigEndian(std::bit_cast<std::uint64_t>(value), 8)); }
  Ref array(const std::vector<Ref>& items) {
    return add(header(0xA, items.size()) + joined(items, 4));
  }
  // "bplist00", the objects, a table of 4-byte offsets and the trailer.
  std::string finish(Ref root) const {
    std::string out = "bplist00", table;
    for (const std::string& object : objects_) {
      table += bigEndian(out.size(), 4);
      out += object;
    }
    return out + table + std::string(6, '\0') + "\x04\x04" + bigEndian(objects_.size(), 8) +
           bigEndian(root, 8) + bigEndian(out.size(), 8);
  }

 private:
  static std::string header(unsigned kind, std::size_t count) {
    if (count < 15) return std::string(1, static_cast<char>((kind << 4) | count));
    return std::string(1, static_cast<char>((kind << 4) | 0xF)) + "\x12" + bigEndian(count, 4);
  }
  template <typename T>
  static std::string joined(const std::vector<T>& items, std::size_t width) {
    std::string out;
    for (const T item : items) out += bigEndian(item, width);
    return out;
  }
  Ref add(std::string object) {
    objects_.push_back(std::move(object));
    return static_cast<Ref>(objects_.size() - 1);
  }
  std::vector<std::string> objects_;
};

std::string xml(std::string_view body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + std::string(body) +
         "</plist>\n";
}

std::string corpusFile(const std::string& name) {
  std::ifstream in(std::string(ZELNORA_SOURCE_DIR) + "/fuzz/corpus/plist/" + name,
                   std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string repeated(std::string_view piece, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

std::optional<PropertyValue> storedAndReadBack(const PropertyValue& value) {
  const auto encoded = detail::encodeBinaryPropertyList(value);
  return encoded ? parsePropertyList(toString(*encoded)) : std::nullopt;
}

TEST(PropertyListReader, ReadsEveryTypeFromAFile) {
  // clang-format off
  const PropertyValue expected(PropertyDictionary{{"data", Bytes{0, 1, 0xff, 'b', 'y', 't', 'e', 's'}},
      {"headers", makeStringDictionary({{"Accept", "*/*"}, {"X-Tenant", "acme"}})},
      // PropertyValue(...) keeps the array nested: a braced array of one array is a copy to clang.
      {"nested", PropertyArray{PropertyValue(PropertyArray{PropertyDictionary{{"k", PropertyArray{"v"}}}})}},
      {"numbers", PropertyArray{std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 40, 3.5, true, false}},
      {"text", "iPhone X\xca\x80"}, {"when", PropertyDate{736259415}}});
  // clang-format on
  PropertyListReader& reader = linux_provider::propertyListReader();
  const std::string corpus = std::string(ZELNORA_SOURCE_DIR) + "/fuzz/corpus/plist/";
  EXPECT_EQ(reader.readFile(corpus + "mixed.xml"), expected);
  EXPECT_EQ(parsePropertyList(corpusFile("mixed.bplist")), expected) << "binary reads as XML does";
  // A date read from a list written elsewhere is exact (a fuzz finding before 2001).
  const auto finding = parsePropertyList(corpusFile("roundtrip_negative_date.bplist"));
  EXPECT_EQ(finding.value_or(PropertyDictionary{}).dictionary()->at("text"),
            PropertyValue(PropertyDate{-35.884480893611908}));
  EXPECT_FALSE(reader.readFile(corpus + "missing.plist") || reader.readFile(corpus));
}

TEST(PropertyListReader, RefusesWhatItCannotReadFaithfullyOrSafely) {
  BinaryPlist ok;
  const std::string valid = ok.finish(ok.array({ok.string("a")}));
  const auto patched = [&](std::size_t at, char byte) {
    std::string bytes = valid;
    bytes[at] = byte;
    return bytes;
  };
  BinaryPlist cycle, shared, deep;
  BinaryPlist::Ref level = shared.string("leaf"), inner = deep.string("core");
  for (int i = 0; i < 40; ++i) level = shared.array({level, level});  // 2^40 values expanded
  for (int i = 0; i < 100000; ++i) inner = deep.array({inner});
  const auto text16 = [](std::vector<std::uint16_t> units) {
    BinaryPlist b;
    return b.finish(b.array({b.utf16(units)}));
  };
  const auto twoDates = [](double first, double second) {  // that libplist reads alike
    BinaryPlist b;
    return b.finish(b.array({b.date(first), b.date(second)}));
  };
  // clang-format off
  const std::pair<const char*, std::string> cases[] = {
      {"empty", ""}, {"garbage", "\x01\x02 not a plist \xff"}, {"json", R"({"a":"b"})"},
      {"truncated binary", valid.substr(0, valid.size() - 5)},
      {"truncated xml", xml("<dict><key>a</key><string>b</string></dict>").substr(0, 70)},
      {"root index outside the table", patched(valid.size() - 9, 9)},
      {"offset table outside the file", patched(valid.size() - 1, '\xF0')},
      {"reference outside the table", patched(valid.find('\xA1') + 4, 7)},
      {"cyclic object graph", cycle.finish(cycle.array({0}))},
      {"shared objects expanding exponentially", shared.finish(level)}, {"deep binary nesting", deep.finish(inner)},
      {"deep xml nesting", xml(repeated("<array>", 100000) + repeated("</array>", 100000))},
      {"deep xml nesting behind comments", xml(repeated("<array><!--</array>-->", 100000) + repeated("</array>", 100000))},
      {"NUL in xml text", xml("<string>a\0b</string>"s)}, {"NUL in xml key", xml("<dict><key>a\0b</key><true/></dict>"s)},
      {"NUL as xml reference", xml("<string>a&#x00;b</string>")},
      {"NUL in binary text", corpusFile("crash_binary_string_with_nul.bplist")},
      {"NUL in binary key", corpusFile("crash_binary_key_with_nul.bplist")},
      {"unpaired high surrogate", text16({'A', 0xD83D, 'B'})}, {"low before high surrogate", text16({0xDE00, 0xD83D})},
      {"dates within the first second", twoDates(-0.5, 0.5)}, {"dates a microsecond apart", twoDates(100.000001, 100)},
      {"larger than the file limit", xml("<string>" + std::string(detail::kMaxPropertyListBytes, 'x') + "</string>")}};
  // clang-format on
  for (const auto& [label, bytes] : cases) EXPECT_FALSE(parsePropertyList(bytes)) << label;
  EXPECT_TRUE(parsePropertyList(valid));
}

TEST(PropertyListCodec, StoresWhatReadsBackAsStoredAndRefusesTheRest) {
  PropertyDictionary wide;  // more than 255 objects: wider references
  for (int i = 0; i < 300; ++i) wide["key" + std::to_string(i)] = std::int64_t{i % 17};
  // clang-format off
  const PropertyValue original(PropertyDictionary{
      {"text", "caf\xc3\xa9 \xe2\x82\xac"}, {"bytes", Bytes{0, 255, 10}}, {"empty", PropertyArray{Bytes{}, "", PropertyDictionary{}}},
      {"integers", PropertyArray{std::int64_t{255}, std::int64_t{256}, std::int64_t{65536}, std::int64_t{4294967296},
                                 std::int64_t{-1}, INT64_MAX, INT64_MIN}},
      {"reals", PropertyArray{-0.0, 1e-300, 1.7976931348623157e308, 0.1, true, false}}, {"date", PropertyDate{700000000.5}},
      {"long UTF-16", std::string(70000, 'x') + "\xe2\x82\xac"}, {"long data", Bytes(70000, 0xAB)}, {"wide", wide}});
  // clang-format on
  const auto encoded = detail::encodeBinaryPropertyList(original);
  ASSERT_TRUE(encoded);
  EXPECT_EQ(toString(*encoded).substr(0, 8), "bplist00");
  EXPECT_EQ(parsePropertyList(toString(*encoded)), original);
  // Equal texts are written once: 4000 references to one long text stay small enough to read.
  EXPECT_LT(detail::encodeBinaryPropertyList(PropertyArray(4000, std::string(2000, 't')))->size(),
            64u * 1024);
  const std::size_t values = detail::kMaxPropertyListValues, bytes = detail::kMaxPropertyListBytes;
  EXPECT_EQ(storedAndReadBack(PropertyArray(values - 1, true)), PropertyArray(values - 1, true));

  // clang-format off
  const std::pair<const char*, PropertyValue> refused[] = {
      {"text with NUL", "a\0b"s}, {"text that is not UTF-8", "\xff"s}, {"key that is not UTF-8", PropertyDictionary{{"\xc3", "v"}}},
      {"output past the readable size", PropertyArray{Bytes(bytes / 2, 1), Bytes(bytes / 2, 2)}},
      {"more values than are read", PropertyArray(values, true)}, {"date beyond 32-bit seconds", PropertyDate{2147483648.0}},
      {"date that is not a number", PropertyDate{std::nan("")}},
      {"dates libplist would read alike", PropertyArray{PropertyDate{100.0000012}, PropertyDate{100}}}};
  // clang-format on
  for (const auto& [label, value] : refused) {
    EXPECT_FALSE(detail::encodeBinaryPropertyList(value)) << label;
  }
}

}  // namespace
}  // namespace platform
