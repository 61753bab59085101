// What a property list reads as must be stored back and read again unchanged (dates to the
// microsecond, and identical bytes from the second store on), and what cannot be read faithfully
// (an unpaired UTF-16 surrogate, a date libplist cannot carry or tell apart) is refused rather
// than read lossy.
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

// A stored date is rounded to the microsecond (at most 0.5 µs) and libplist then forms the double
// seconds + microseconds / 1e6, which rounds by at most half a unit in the last place: 2^-23 s for
// every date with 32-bit seconds. 1e-15 s covers the roundings of the fraction on the way.
constexpr double kStoredDateTolerance = 5e-7 + 0x1p-23 + 1e-15;

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

double secondsOf(const PropertyValue& value) {
  return std::get<PropertyDate>(value.value).secondsSinceReferenceDate;
}

// Bit-exact, so that -0.0 and 0.0 or two neighbouring doubles are told apart.
void expectSameDouble(double expected, double actual, const std::string& label) {
  EXPECT_EQ(std::bit_cast<std::uint64_t>(expected), std::bit_cast<std::uint64_t>(actual))
      << label << ": expected " << expected << ", got " << actual;
}

// Stores `date`, reads it back, and stores what was read: the date comes back within the
// tolerance and the second store writes the first store's bytes, so nothing drifts.
void expectStoredWithinToleranceAndStable(double date, const std::string& label) {
  const std::optional<Bytes> first = detail::encodeBinaryPropertyList(PropertyDate{date});
  ASSERT_TRUE(first.has_value()) << label;
  const std::optional<PropertyValue> read = parsePropertyList(toString(*first));
  ASSERT_TRUE(read.has_value()) << label;
  const double readBack = secondsOf(*read);
  EXPECT_LE(std::fabs(readBack - date), kStoredDateTolerance)
      << label << ": stored " << date << ", read back " << readBack;
  EXPECT_EQ(detail::encodeBinaryPropertyList(*read), first) << label;
}

// The input the plist fuzzer found: a dictionary whose date is -35.884480893611908 (before 2001
// with a fraction). libplist reads it as -35 s and +0.884480 s, so it read as -34.11552 and then
// drifted further with every store.
TEST(PropertyListRoundTrip, FuzzFoundNegativeDateReadsExactlyAndStoresToTheMicrosecond) {
  const std::string finding = corpusFile("roundtrip_negative_date.bplist");
  ASSERT_FALSE(finding.empty());
  const std::optional<PropertyValue> read = parsePropertyList(finding);
  ASSERT_TRUE(read.has_value());
  ASSERT_NE(read->dictionary(), nullptr);
  const PropertyValue& when = read->dictionary()->at("text");
  ASSERT_TRUE(std::holds_alternative<PropertyDate>(when.value));
  expectSameDouble(-35.884480893611908, secondsOf(when), "date");
  EXPECT_EQ(read->dictionary()->at("when"), PropertyValue("iPhone X\xca\x80"));

  const std::optional<Bytes> first = detail::encodeBinaryPropertyList(*read);
  ASSERT_TRUE(first.has_value());
  const std::optional<PropertyValue> stored = parsePropertyList(toString(*first));
  ASSERT_TRUE(stored.has_value());
  ASSERT_NE(stored->dictionary(), nullptr);
  EXPECT_EQ(stored->dictionary()->at("when"), read->dictionary()->at("when"));
  EXPECT_NEAR(secondsOf(stored->dictionary()->at("text")), -35.884481, kStoredDateTolerance);
  EXPECT_EQ(detail::encodeBinaryPropertyList(*stored), first);
  expectStoredWithinToleranceAndStable(-35.884480893611908, "fuzz finding alone");
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

// Dates read from a list written elsewhere are exact; stored, they keep the microsecond.
TEST(PropertyListRoundTrip, BinaryDatesReadExactlyAndStoreToTheMicrosecond) {
  const double dates[] = {
      -35.884480893611908,  // the fuzz finding
      -1.25,
      -0.5,  // within the second before 2001: libplist reports it as +0.5
      -0.0,
      1e-7,
      -4e-7,
      700000000.123456,
      700000000.1234567,  // finer than a microsecond
      -978307200.75,      // 1970
      -978307200.0000004,
      2147483647.999,
      -2147483648.0,
  };
  for (const double date : dates) {
    const std::string label = "date " + std::to_string(date);
    const std::optional<PropertyValue> read = parsePropertyList(binaryListWithDates({date}));
    ASSERT_TRUE(read.has_value()) << label;
    expectSameDouble(date, secondsOf(read->array()->front()), label);
    const std::optional<PropertyValue> stored = storedAndReadBack(*read);
    ASSERT_TRUE(stored.has_value()) << label;
    EXPECT_LE(std::fabs(secondsOf(stored->array()->front()) - date), kStoredDateTolerance) << label;
    expectStoredWithinToleranceAndStable(date, label);
  }
}

// Any fraction, negative dates included: the error stays under the tolerance and does not grow
// with further stores.
TEST(PropertyListRoundTrip, StoredDatesReadBackWithinTheToleranceAndStoreStably) {
  std::uint64_t state = 0x9E3779B97F4A7C15u;
  const auto nextFraction = [&state] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(state >> 11) * 0x1p-53;  // [0, 1)
  };
  for (std::int64_t i = 0; i < 3000; ++i) {
    // Whole seconds across the 32-bit range, plus sub-second dates either side of 2001.
    const double whole = i % 3 == 0 ? static_cast<double>(i % 5 - 2)
                                    : static_cast<double>(i * 1431655 % 4294967293 - 2147483646);
    const double date = whole + nextFraction();
    expectStoredWithinToleranceAndStable(date, "date " + std::to_string(date));
    if (::testing::Test::HasFailure()) return;
  }
}

// A date on a whole microsecond, written as seconds + microseconds / 1e6, is the very double
// libplist forms, so it comes back to the bit.
TEST(PropertyListRoundTrip, DatesOnAWholeMicrosecondStoreToTheBit) {
  for (std::int64_t i = 0; i < 2000; ++i) {
    const double date = static_cast<double>(i * 7919 % 2000000000 - 1000000000) +
                        static_cast<double>(i * 104729 % 1000000) / 1e6;
    const std::optional<PropertyValue> read = storedAndReadBack(PropertyDate{date});
    ASSERT_TRUE(read.has_value()) << date;
    expectSameDouble(date, secondsOf(*read), std::to_string(date));
  }
}

struct DateSetCase {
  const char* label;
  std::vector<double> dates;
  bool readable;  // from a list written elsewhere
  bool storable;
};

TEST(PropertyListRoundTrip, DatesLibplistCannotCarryOrTellApartAreRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  const DateSetCase cases[] = {
      {"not a number", {nan}, false, false},
      {"infinite", {infinity}, false, false},
      {"past 32-bit seconds", {2147483648.0}, false, false},
      {"before 32-bit seconds", {-2147483649.0}, false, false},
      {"same magnitude within the first second", {-0.5, 0.5}, false, false},
      // Stored, both become 100 s: one date, nothing to tell apart.
      {"same microsecond", {100.0000001, 100.0000002}, false, true},
      // The second below -2^31 s or a fraction rounding up to 2^31 s: seconds beyond 32 bits.
      {"whole seconds below 32 bits", {-2147483648.5}, true, false},
      {"rounds up to 2^31 s", {2147483647.9999996}, true, false},
      // Told apart as read, but stored as 100 + 1e-6 s (a little below 100.000001, so libplist
      // reads 0 µs) and 100 s, which libplist reads alike.
      {"stored next to each other, read alike", {100.0000012, 100.0}, true, false},
      {"stored next to each other, read alike, before 2001",
       {-35.9999968, -35.999998},
       true,
       false},
      {"read alike as written", {100.000001, 100.0}, false, false},
  };
  for (const DateSetCase& c : cases) {
    EXPECT_EQ(parsePropertyList(binaryListWithDates(c.dates)).has_value(), c.readable) << c.label;
    PropertyArray value;
    for (const double date : c.dates) value.emplace_back(PropertyDate{date});
    const std::optional<Bytes> encoded = detail::encodeBinaryPropertyList(value);
    EXPECT_EQ(encoded.has_value(), c.storable) << c.label;
    if (encoded) {
      EXPECT_TRUE(parsePropertyList(toString(*encoded)).has_value()) << c.label;
    }
  }
  // The same date twice is no ambiguity.
  EXPECT_TRUE(parsePropertyList(binaryListWithDates({-0.5, -0.5})).has_value());
  EXPECT_TRUE(storedAndReadBack(PropertyArray{PropertyDate{-0.5}, PropertyDate{-0.5}}));
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
// would exceed what the reader accepts, so equal texts and dates must be written once.
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

// What the reader would refuse for its length is not stored either.
TEST(PropertyListRoundTrip, OutputPastTheReadableSizeIsNotStored) {
  const std::size_t limit = detail::kMaxPropertyListBytes;
  const PropertyValue fits(PropertyArray{Bytes(limit - 64, 0x01)});
  EXPECT_EQ(storedAndReadBack(fits), fits);
  const PropertyValue tooLong(PropertyArray{Bytes(limit / 2, 0x01), Bytes(limit / 2, 0x02)});
  EXPECT_FALSE(detail::encodeBinaryPropertyList(tooLong).has_value());
}

// The reader takes at most kMaxPropertyListValues values, a dictionary entry counting as two (key
// and value); the encoder refuses what would be refused when read.
TEST(PropertyListRoundTrip, ValuesBeyondTheReadableCountAreNotStored) {
  const std::size_t limit = detail::kMaxPropertyListValues;
  // The array itself plus its items.
  EXPECT_EQ(storedAndReadBack(PropertyArray(limit - 1, true)), PropertyArray(limit - 1, true));
  EXPECT_FALSE(detail::encodeBinaryPropertyList(PropertyArray(limit, true)).has_value());

  // 1028 dictionaries of 127 entries are 1028 * 255 values; with the array and three more items
  // that is the limit exactly.
  PropertyDictionary entries;
  for (int i = 0; i < 127; ++i) entries.emplace(std::to_string(i), true);
  PropertyArray dictionaries(1028, entries);
  ASSERT_EQ(1 + dictionaries.size() * 255 + 3, limit);
  for (const std::size_t extra : {3u, 4u}) {
    PropertyArray value = dictionaries;
    value.insert(value.end(), extra, PropertyValue(false));
    if (extra == 3) {
      EXPECT_EQ(storedAndReadBack(value), PropertyValue(value));
    } else {
      EXPECT_FALSE(detail::encodeBinaryPropertyList(value).has_value());
    }
  }
}

}  // namespace
}  // namespace platform
