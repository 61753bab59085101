// What a property list reads as must be stored back and read again unchanged, and what cannot be
// read faithfully (an unpaired UTF-16 surrogate, a date libplist cannot carry or tell apart) is
// refused rather than read lossy.
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../../platform/src/PlistCodec.h"
#include "BinaryPlistBuilder.h"
#include "platform/PropertyListReader.h"

namespace platform {
namespace {

using testing::BinaryPlistBuilder;

std::string corpusFile(const std::string& name) {
  std::ifstream in(std::string(ZELNORA_SOURCE_DIR) + "/fuzz/corpus/plist/" + name,
                   std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::optional<PropertyValue> storedAndReadBack(const PropertyValue& value) {
  const std::optional<Bytes> encoded = detail::encodeBinaryPropertyList(value);
  if (!encoded) return std::nullopt;
  return parsePropertyList(toString(*encoded));
}

std::string binaryListWithDates(const std::vector<double>& dates) {
  BinaryPlistBuilder b;
  std::vector<BinaryPlistBuilder::Ref> items;
  for (const double date : dates) items.push_back(b.date(date));
  return b.finish(b.array(items));
}

// Bit-exact, so that -0.0 and 0.0 or two neighbouring doubles are told apart.
void expectSameDouble(double expected, double actual, const std::string& label) {
  EXPECT_EQ(std::bit_cast<std::uint64_t>(expected), std::bit_cast<std::uint64_t>(actual))
      << label << ": expected " << expected << ", got " << actual;
}

// The input the plist fuzzer found: a dictionary whose date is -35.884480893611908 (before 2001
// with a fraction). libplist reads it as -35 s and +0.884480 s, so it read as -34.11552 and then
// drifted further with every store.
TEST(PropertyListRoundTrip, FuzzFoundNegativeDateReadsExactlyAndStoresUnchanged) {
  const std::string finding = corpusFile("roundtrip_negative_date.bplist");
  ASSERT_FALSE(finding.empty());
  const std::optional<PropertyValue> read = parsePropertyList(finding);
  ASSERT_TRUE(read.has_value());
  ASSERT_NE(read->dictionary(), nullptr);
  const PropertyValue& when = read->dictionary()->at("text");
  ASSERT_TRUE(std::holds_alternative<PropertyDate>(when.value));
  expectSameDouble(-35.884480893611908,
                   std::get<PropertyDate>(when.value).secondsSinceReferenceDate, "date");
  EXPECT_EQ(read->dictionary()->at("when"), PropertyValue("iPhone X\xca\x80"));
  EXPECT_EQ(storedAndReadBack(*read), read);
}

struct Utf16Case {
  const char* label;
  std::vector<std::uint16_t> units;
  std::optional<std::string> utf8;  // absent: the list is refused
};

TEST(PropertyListRoundTrip, Utf16TextRoundTripsExactlyOrIsRefused) {
  const Utf16Case cases[] = {
      {"BMP control characters",
       {0x0001, 0x001F, 0x007F, 0x0041},
       "\x01\x1f\x7f"
       "A"},
      {"surrogate pair", {0x0041, 0xD83D, 0xDE00}, "A\xf0\x9f\x98\x80"},
      {"non-ASCII BMP text",
       {0x00E9, 0x20AC, 0xFFFD, 0xFEFF, 0xFFFF},
       "\xc3\xa9\xe2\x82\xac\xef\xbf\xbd\xef\xbb\xbf\xef\xbf\xbf"},
      {"unpaired high surrogate", {0x0041, 0xD83D, 0x0042}, std::nullopt},
      {"unpaired high surrogate at the end", {0x0041, 0xD83D}, std::nullopt},
      {"unpaired low surrogate", {0xDE00, 0x0041}, std::nullopt},
      {"low before high", {0xDE00, 0xD83D}, std::nullopt},
  };
  for (const Utf16Case& c : cases) {
    // As a value and as a dictionary key.
    BinaryPlistBuilder b;
    const auto text = b.utf16String(c.units);
    const auto root = b.array({text, b.dictionary({{text, b.boolean(true)}})});
    const std::optional<PropertyValue> read = parsePropertyList(b.finish(root));
    if (!c.utf8) {
      EXPECT_FALSE(read.has_value()) << c.label;
      continue;
    }
    ASSERT_TRUE(read.has_value()) << c.label;
    const PropertyValue expected(PropertyArray{*c.utf8, PropertyDictionary{{*c.utf8, true}}});
    EXPECT_EQ(*read, expected) << c.label;
    EXPECT_EQ(storedAndReadBack(*read), expected) << c.label;
  }
}

TEST(PropertyListRoundTrip, BinaryDatesReadExactlyAndStoreUnchanged) {
  const double dates[] = {
      -35.884480893611908,  // the fuzz finding
      -1.25,
      -0.5,  // within the second before 2001: libplist reports it as +0.5
      -0.0,
      1e-7,
      700000000.123456,
      700000000.1234567,  // finer than a microsecond
      -978307200.75,      // 1970
      2147483647.999,
      -2147483648.5,
  };
  for (const double date : dates) {
    const std::string label = "date " + std::to_string(date);
    const std::optional<PropertyValue> read = parsePropertyList(binaryListWithDates({date}));
    ASSERT_TRUE(read.has_value()) << label;
    const PropertyValue& item = read->array()->front();
    expectSameDouble(date, std::get<PropertyDate>(item.value).secondsSinceReferenceDate, label);
    EXPECT_EQ(storedAndReadBack(*read), read) << label;
  }
}

// libplist 2.2 wrote a date given as seconds + microseconds about 1 µs early half of the time.
TEST(PropertyListRoundTrip, StoredDatesReadBackToTheBit) {
  for (std::int64_t i = 0; i < 2000; ++i) {
    const double date = static_cast<double>(i * 7919 % 2000000000 - 1000000000) +
                        static_cast<double>(i * 104729 % 1000000) / 1e6;
    const std::optional<PropertyValue> read = storedAndReadBack(PropertyDate{date});
    ASSERT_TRUE(read.has_value()) << date;
    expectSameDouble(date, std::get<PropertyDate>(read->value).secondsSinceReferenceDate,
                     std::to_string(date));
  }
}

TEST(PropertyListRoundTrip, DatesLibplistCannotCarryOrTellApartAreRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  const std::pair<const char*, std::vector<double>> cases[] = {
      {"not a number", {nan}},
      {"infinite", {infinity}},
      {"past 32-bit seconds", {2147483648.0}},
      {"before 32-bit seconds", {-2147483649.0}},
      {"same microsecond", {100.0000001, 100.0000002}},
      {"same magnitude within the first second", {-0.5, 0.5}},
  };
  for (const auto& [label, dates] : cases) {
    EXPECT_FALSE(parsePropertyList(binaryListWithDates(dates)).has_value()) << label;
    PropertyArray value;
    for (const double date : dates) value.emplace_back(PropertyDate{date});
    EXPECT_FALSE(detail::encodeBinaryPropertyList(value).has_value()) << label;
  }
  // The same date twice is no ambiguity.
  EXPECT_TRUE(parsePropertyList(binaryListWithDates({-0.5, -0.5})).has_value());
}

// Counts and integers change their encoded width at these values.
TEST(PropertyListRoundTrip, SizeAndWidthBoundariesStoreUnchanged) {
  const std::int64_t widths[] = {0,
                                 255,
                                 256,
                                 65535,
                                 65536,
                                 4294967295,
                                 4294967296,
                                 -1,
                                 std::numeric_limits<std::int64_t>::max(),
                                 std::numeric_limits<std::int64_t>::min()};
  const PropertyArray integers(std::begin(widths), std::end(widths));
  PropertyDictionary wide;
  for (int i = 0; i < 300; ++i)
    wide.emplace("key" + std::to_string(i), PropertyArray(i % 17, PropertyValue(std::int64_t{i})));
  const PropertyValue original(PropertyDictionary{
      {"integers", integers},
      {"reals", PropertyArray{-0.0, 1e-300, std::numeric_limits<double>::max(), 0.1}},
      {std::string(14, 'k'), std::string(14, 'v')},
      {std::string(15, 'k'), std::string(15, 'v')},
      {"long UTF-16 \xe2\x82\xac", std::string(70000, 'x') + "\xe2\x82\xac"},
      {"long data", Bytes(70000, 0xAB)},
      {"wide", wide},
  });
  EXPECT_EQ(storedAndReadBack(original), original);
}

// A small list may refer to one long text thousands of times; written out once per reference it
// would exceed what the reader accepts.
TEST(PropertyListRoundTrip, SharedObjectsStayWithinTheReadableSize) {
  BinaryPlistBuilder b;
  const auto text = b.string(std::string(2000, 't'));
  const auto date = b.date(-0.25);
  std::vector<BinaryPlistBuilder::Ref> items(4000, text);
  items.insert(items.end(), 100, date);
  const std::optional<PropertyValue> read = parsePropertyList(b.finish(b.array(items)));
  ASSERT_TRUE(read.has_value());
  ASSERT_EQ(read->array()->size(), 4100u);
  const std::optional<Bytes> encoded = detail::encodeBinaryPropertyList(*read);
  ASSERT_TRUE(encoded.has_value());
  EXPECT_LT(encoded->size(), 64u * 1024);
  EXPECT_EQ(parsePropertyList(toString(*encoded)), read);
}

}  // namespace
}  // namespace platform
