// Property lists: reading XML and binary files into typed values, refusing what cannot be read
// faithfully or safely, and the binary encoding the preferences suite stores.
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../../platform/src/LinuxProviders.h"
#include "../../platform/src/PlistCodec.h"
#include "platform/PropertyListReader.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::string_literals;

// Writes binary property lists byte by byte, so that reader tests do not depend on the writer.
class BinaryPlist {
 public:
  using Ref = std::uint32_t;
  Ref string(std::string_view ascii) { return add(header(0x5, ascii.size()) + std::string(ascii)); }
  Ref utf16(const std::vector<std::uint16_t>& units) {
    std::string object = header(0x6, units.size());
    for (const std::uint16_t unit : units) object += bigEndian(unit, 2);
    return add(object);
  }
  Ref data(std::string_view bytes) { return add(header(0x4, bytes.size()) + std::string(bytes)); }
  Ref integer(std::int64_t value) { return add("\x13" + bigEndian(value, 8)); }
  Ref real(double value) { return add("\x23" + bigEndian(std::bit_cast<std::uint64_t>(value), 8)); }
  Ref date(double value) { return add("\x33" + bigEndian(std::bit_cast<std::uint64_t>(value), 8)); }
  Ref boolean(bool value) { return add(value ? "\x09" : "\x08"); }
  Ref array(const std::vector<Ref>& items) {
    std::string object = header(0xA, items.size());
    for (const Ref item : items) object += bigEndian(item, 4);
    return add(object);
  }
  Ref dictionary(const std::vector<std::pair<Ref, Ref>>& entries) {
    std::string object = header(0xD, entries.size());
    for (const auto& entry : entries) object += bigEndian(entry.first, 4);
    for (const auto& entry : entries) object += bigEndian(entry.second, 4);
    return add(object);
  }
  // "bplist00", the objects, a table of 4-byte offsets and the trailer.
  std::string finish(Ref root) const {
    std::string out = "bplist00", table;
    for (const std::string& object : objects_) {
      table += bigEndian(out.size(), 4);
      out += object;
    }
    const std::size_t tableOffset = out.size();
    return out + table + std::string(6, '\0') + "\x04\x04" + bigEndian(objects_.size(), 8) +
           bigEndian(root, 8) + bigEndian(tableOffset, 8);
  }

 private:
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
    for (std::size_t i = 0; i < width; ++i) out[width - 1 - i] = static_cast<char>(value >> 8 * i);
    return out;
  }
  std::vector<std::string> objects_;
};

std::string xml(std::string_view body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">)" +
         std::string(body) + "</plist>\n";
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

double secondsOf(const PropertyValue& value) {
  return std::get<PropertyDate>(value.value).secondsSinceReferenceDate;
}

TEST(PropertyListReader, ReadsEveryTypeFromXmlAndBinaryFiles) {
  const PropertyValue expected(PropertyDictionary{
      {"Text", "caf\xc3\xa9 & co"},
      {"Base64Text", "aGk="},
      {"Data", Bytes{'h', 'i', 0}},
      {"Count", std::int64_t{300000}},
      {"Negative", std::int64_t{-7}},
      {"Ratio", -0.25},
      {"On", true},
      {"When", PropertyDate{86400.5}},
      {"List", PropertyArray{"x", false, PropertyDictionary{}}},
      {"Utf16", "A\xf0\x9f\x98\x80\xc3\xa9"},
  });
  const std::string xmlList = xml(R"(<dict>
  <key>Text</key><string>caf&#xe9; &amp; co</string><key>Base64Text</key><string>aGk=</string>
  <key>Data</key><data>aGkA</data><key>Count</key><integer>300000</integer>
  <key>Negative</key><integer>-7</integer><key>Ratio</key><real>-0.25</real><key>On</key><true/>
  <key>When</key><date>2001-01-02T00:00:00Z</date>
  <key>List</key><array><string>x</string><false/><dict/></array>
  <key>Utf16</key><string>A&#x1F600;&#xe9;</string></dict>)");
  BinaryPlist b;
  const auto root = b.dictionary({
      {b.string("Text"), b.utf16({'c', 'a', 'f', 0xE9, ' ', '&', ' ', 'c', 'o'})},
      {b.string("Base64Text"), b.string("aGk=")},
      {b.string("Data"), b.data("hi\0"s)},
      {b.string("Count"), b.integer(300000)},
      {b.string("Negative"), b.integer(-7)},
      {b.string("Ratio"), b.real(-0.25)},
      {b.string("On"), b.boolean(true)},
      {b.string("When"), b.date(86400.5)},
      {b.string("List"), b.array({b.string("x"), b.boolean(false), b.dictionary({})})},
      {b.string("Utf16"), b.utf16({'A', 0xD83D, 0xDE00, 0xE9})},
  });
  test_support::TempDirectory dir;
  const auto fromXml = linux_provider::propertyListReader().readFile(dir.write("a.plist", xmlList));
  ASSERT_TRUE(fromXml);
  auto xmlExpected = expected;  // XML dates have whole seconds
  std::get<PropertyDictionary>(xmlExpected.value)["When"] = PropertyDate{86400};
  EXPECT_EQ(*fromXml, xmlExpected);
  const auto fromBinary =
      linux_provider::propertyListReader().readFile(dir.write("b.plist", b.finish(root)));
  EXPECT_EQ(fromBinary, expected);
  EXPECT_FALSE(linux_provider::propertyListReader().readFile(dir.file("missing.plist")));
  EXPECT_FALSE(linux_provider::propertyListReader().readFile(dir.path()));
}

TEST(PropertyListReader, RefusesWhatItCannotReadFaithfullyOrSafely) {
  BinaryPlist ok;
  const std::string valid = ok.finish(ok.array({ok.string("a")}));
  const auto patched = [&](std::size_t fromEnd, char byte) {
    std::string bytes = valid;
    bytes[bytes.size() - fromEnd] = byte;
    return bytes;
  };
  BinaryPlist cycle;
  cycle.string("unused");
  BinaryPlist shared;  // each array holds the previous one twice: 2^40 values once expanded
  BinaryPlist::Ref level = shared.string("leaf");
  for (int i = 0; i < 40; ++i) level = shared.array({level, level});
  BinaryPlist deep;
  BinaryPlist::Ref inner = deep.string("core");
  for (int i = 0; i < 100000; ++i) inner = deep.array({inner});
  const auto surrogates = [](std::vector<std::uint16_t> units) {
    BinaryPlist b;
    return b.finish(b.array({b.utf16(units)}));
  };
  const std::pair<const char*, std::string> cases[] = {
      {"empty", ""},
      {"garbage", "\x01\x02 not a plist \xff"},
      {"json", R"({"a":"b"})"},
      {"truncated binary", valid.substr(0, valid.size() - 5)},
      {"magic only", "bplist00"},
      {"truncated xml", xml("<dict><key>a</key><string>b</string></dict>").substr(0, 150)},
      {"root index outside the table", patched(9, 9)},
      {"offset table outside the file", patched(1, '\xF0')},
      {"reference outside the table", patched(valid.size() - valid.find('\xA1') - 4, 7)},
      {"cyclic object graph", cycle.finish(cycle.array({1}))},
      {"shared objects expanding exponentially", shared.finish(level)},
      {"deep binary nesting", deep.finish(inner)},
      {"deep xml nesting", xml(repeated("<array>", 100000) + repeated("</array>", 100000))},
      {"deep xml nesting behind comments",
       xml(repeated("<array><!--</array>-->", 100000) + repeated("</array>", 100000))},
      {"NUL in xml text", xml("<string>a\0b</string>"s)},
      {"NUL in xml key", xml("<dict><key>a\0b</key><true/></dict>"s)},
      {"NUL as xml reference", xml("<string>a&#x00;b</string>")},
      {"NUL in binary text", corpusFile("crash_binary_string_with_nul.bplist")},
      {"NUL in binary key", corpusFile("crash_binary_key_with_nul.bplist")},
      {"unpaired high surrogate", surrogates({'A', 0xD83D, 'B'})},
      {"high surrogate at the end", surrogates({'A', 0xD83D})},
      {"low before high surrogate", surrogates({0xDE00, 0xD83D})},
      {"larger than the file limit",
       xml("<string>" + std::string(detail::kMaxPropertyListBytes, 'x') + "</string>")},
  };
  for (const auto& [label, bytes] : cases) {
    EXPECT_FALSE(parsePropertyList(bytes)) << label;
  }
  EXPECT_TRUE(parsePropertyList(valid));
}

TEST(PropertyListCodec, StoresEveryTypeAndWidthAndReadsItBack) {
  PropertyDictionary wide;
  for (int i = 0; i < 300; ++i) {
    wide.emplace("key" + std::to_string(i), PropertyArray(i % 17, std::int64_t{i}));
  }
  const PropertyValue original(PropertyDictionary{
      {"text", "caf\xc3\xa9 \xe2\x82\xac"},
      {"bytes", Bytes{0, 255, 10}},
      {"empty", PropertyArray{Bytes{}, "", PropertyDictionary{}}},
      {"integers", PropertyArray{std::int64_t{255}, std::int64_t{256}, std::int64_t{65536},
                                 std::int64_t{4294967296}, std::int64_t{-1},
                                 std::numeric_limits<std::int64_t>::max(),
                                 std::numeric_limits<std::int64_t>::min()}},
      {"reals", PropertyArray{-0.0, 1e-300, std::numeric_limits<double>::max(), 0.1}},
      {"flags", PropertyArray{true, false}},
      {"date", PropertyDate{700000000.5}},
      {std::string(15, 'k'), std::string(15, 'v')},
      {"long UTF-16", std::string(70000, 'x') + "\xe2\x82\xac"},
      {"long data", Bytes(70000, 0xAB)},
      {"wide", wide},
  });
  const auto encoded = detail::encodeBinaryPropertyList(original);
  ASSERT_TRUE(encoded);
  EXPECT_EQ(toString(*encoded).substr(0, 8), "bplist00");
  EXPECT_EQ(parsePropertyList(toString(*encoded)), original);

  // Equal texts are written once: 4000 references to one long text stay small enough to read.
  const PropertyValue shared(PropertyArray(4000, std::string(2000, 't')));
  const auto sharedEncoded = detail::encodeBinaryPropertyList(shared);
  ASSERT_TRUE(sharedEncoded);
  EXPECT_LT(sharedEncoded->size(), 64u * 1024);
  EXPECT_EQ(storedAndReadBack(PropertyArray(detail::kMaxPropertyListValues - 1, true)),
            PropertyValue(PropertyArray(detail::kMaxPropertyListValues - 1, true)));
}

TEST(PropertyListCodec, RefusesWhatCouldNotBeReadBackAsStored) {
  const std::size_t limit = detail::kMaxPropertyListBytes;
  const std::pair<const char*, PropertyValue> cases[] = {
      {"text with NUL", "a\0b"s},
      {"text that is not UTF-8", "\xff"s},
      {"key that is not UTF-8", PropertyDictionary{{"\xc3", "v"}}},
      {"output past the readable size", PropertyArray{Bytes(limit / 2, 1), Bytes(limit / 2, 2)}},
      {"more values than are read", PropertyArray(detail::kMaxPropertyListValues, true)},
      {"date beyond 32-bit seconds", PropertyDate{2147483648.0}},
      {"date that is not a number", PropertyDate{std::nan("")}},
  };
  for (const auto& [label, value] : cases) {
    EXPECT_FALSE(detail::encodeBinaryPropertyList(value)) << label;
  }
}

// Dates read from a list written elsewhere are exact; stored, they keep the microsecond and a
// second store writes the first one's bytes, so nothing drifts.
TEST(PropertyListDates, ReadExactlyAndStoreToTheMicrosecondWithoutDrift) {
  constexpr double kTolerance = 5e-7 + 0x1p-23 + 1e-15;
  for (const double date : {-35.884480893611908, -1.25, -0.5, -0.0, 1e-7, 700000000.123456,
                            700000000.1234567, -978307200.75, 2147483647.999, -2147483648.0}) {
    SCOPED_TRACE(std::to_string(date));
    BinaryPlist b;
    const auto read = parsePropertyList(b.finish(b.array({b.date(date)})));
    ASSERT_TRUE(read);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(secondsOf(read->array()->front())),
              std::bit_cast<std::uint64_t>(date));
    const auto first = detail::encodeBinaryPropertyList(PropertyDate{date});
    ASSERT_TRUE(first);
    const auto stored = parsePropertyList(toString(*first));
    ASSERT_TRUE(stored);
    EXPECT_LE(std::fabs(secondsOf(*stored) - date), kTolerance);
    EXPECT_EQ(detail::encodeBinaryPropertyList(*stored), first);
  }
  const auto finding = parsePropertyList(corpusFile("roundtrip_negative_date.bplist"));
  ASSERT_TRUE(finding);
  EXPECT_EQ(secondsOf(finding->dictionary()->at("text")), -35.884480893611908);
}

// Two different dates libplist would report alike cannot be told apart once read.
TEST(PropertyListDates, DatesLibplistCannotTellApartAreRefused) {
  struct Case {
    const char* label;
    std::vector<double> dates;
    bool readable, storable;
  };
  const Case cases[] = {
      {"same magnitude within the first second", {-0.5, 0.5}, false, false},
      {"same microsecond", {100.0000001, 100.0000002}, false, true},
      {"stored next to each other, read alike", {100.0000012, 100.0}, true, false},
      {"read alike as written", {100.000001, 100.0}, false, false},
      {"the same date twice", {-0.5, -0.5}, true, true},
  };
  for (const Case& c : cases) {
    BinaryPlist b;
    std::vector<BinaryPlist::Ref> items;
    PropertyArray value;
    for (const double date : c.dates) {
      items.push_back(b.date(date));
      value.emplace_back(PropertyDate{date});
    }
    EXPECT_EQ(parsePropertyList(b.finish(b.array(items))).has_value(), c.readable) << c.label;
    EXPECT_EQ(storedAndReadBack(value).has_value(), c.storable) << c.label;
  }
}

}  // namespace
}  // namespace platform
