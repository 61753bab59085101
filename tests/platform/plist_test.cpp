#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "../../platform/src/LinuxProviders.h"
#include "../../platform/src/PlistCodec.h"
#include "BinaryPlistBuilder.h"
#include "platform/PropertyListReader.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using test_support::TempDirectory;
using testing::BinaryPlistBuilder;

PropertyListReader& reader() { return linux_provider::propertyListReader(); }

std::string xmlDocument(std::string_view body) {
  return std::string(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)") + std::string(body) +
         "\n</plist>\n";
}

std::string nestedXmlArrays(int depth) {
  std::string body;
  for (int i = 0; i < depth; ++i) body += "<array>";
  body += "<string>core</string>";
  for (int i = 0; i < depth; ++i) body += "</array>";
  return xmlDocument(body);
}

std::string nestedBinaryArrays(int depth) {
  BinaryPlistBuilder builder;
  BinaryPlistBuilder::Ref inner = builder.string("core");
  for (int i = 0; i < depth; ++i) inner = builder.array({inner});
  return builder.finish(inner);
}

int nestingOf(const PropertyValue& value) {
  int depth = 0;
  const PropertyValue* current = &value;
  while (const PropertyArray* array = current->array()) {
    ++depth;
    if (array->empty()) break;
    current = &array->front();
  }
  return depth;
}

int deepestNesting(const PropertyValue& value) {
  int deepest = 0;
  if (const PropertyArray* array = value.array()) {
    for (const PropertyValue& item : *array) deepest = std::max(deepest, deepestNesting(item));
    return deepest + 1;
  }
  if (const PropertyDictionary* dictionary = value.dictionary()) {
    for (const auto& [key, item] : *dictionary) deepest = std::max(deepest, deepestNesting(item));
    return deepest + 1;
  }
  return 0;
}

// Every single-byte change of `original`, each parsed: none may crash or yield deeper nesting
// than the bound. Returns how many of them still parsed.
int parseEverySingleByteMutation(const std::string& original) {
  int parsed = 0;
  for (std::size_t i = 0; i < original.size(); ++i) {
    for (const unsigned char replacement : {0x00, 0x0F, 0x41, 0x7F, 0xAF, 0xDF, 0xFF}) {
      std::string mutated = original;
      mutated[i] = static_cast<char>(replacement);
      if (const auto value = parsePropertyList(mutated)) {
        ++parsed;
        EXPECT_LE(deepestNesting(*value), detail::kMaxPropertyListDepth) << "byte " << i;
      }
    }
  }
  return parsed;
}

TEST(PropertyListReader, ReadsTypedValuesFromAnXmlFile) {
  TempDirectory dir;
  const std::string path = dir.write("Config.plist", xmlDocument(R"(<dict>
  <key>API_BASE_URL</key><string>https://api.example/v1</string>
  <key>Blob</key><data>AAEC/w==</data>
  <key>Count</key><integer>42</integer>
  <key>Negative</key><integer>-7</integer>
  <key>Ratio</key><real>2.5</real>
  <key>On</key><true/>
  <key>Off</key><false/>
  <key>When</key><date>2001-01-02T00:00:00Z</date>
  <key>List</key><array><string>a</string><integer>1</integer></array>
  <key>Nested</key><dict><key>inner</key><string>caf&#xe9; &amp; co</string></dict>
  <key>Empty</key><dict/>
</dict>)"));
  const auto value = reader().readFile(path);
  ASSERT_TRUE(value.has_value());
  const PropertyDictionary* dict = value->dictionary();
  ASSERT_NE(dict, nullptr);
  EXPECT_EQ(dict->at("API_BASE_URL"), PropertyValue("https://api.example/v1"));
  EXPECT_EQ(dict->at("Blob"), PropertyValue(Bytes{0x00, 0x01, 0x02, 0xFF}));
  EXPECT_EQ(dict->at("Count"), PropertyValue(std::int64_t{42}));
  EXPECT_EQ(dict->at("Negative"), PropertyValue(std::int64_t{-7}));
  EXPECT_EQ(dict->at("Ratio"), PropertyValue(2.5));
  EXPECT_EQ(dict->at("On"), PropertyValue(true));
  EXPECT_EQ(dict->at("Off"), PropertyValue(false));
  EXPECT_EQ(dict->at("When"), PropertyValue(PropertyDate{86400}));
  EXPECT_EQ(dict->at("List"), PropertyValue(PropertyArray{"a", std::int64_t{1}}));
  EXPECT_EQ(dict->at("Nested"), PropertyValue(PropertyDictionary{{"inner", "caf\xc3\xa9 & co"}}));
  EXPECT_EQ(dict->at("Empty"), PropertyValue(PropertyDictionary{}));
}

TEST(PropertyListReader, ReadsTypedValuesFromABinaryFile) {
  BinaryPlistBuilder b;
  const auto root = b.dictionary({
      {b.string("INIT_CONFIG"), b.string("https://cfg.example/{key}")},
      {b.string("Blob"), b.data(std::string("\0\x01text", 6))},
      {b.string("Count"), b.integer(300000)},
      {b.string("Negative"), b.integer(-2)},
      {b.string("Ratio"), b.real(-0.25)},
      {b.string("On"), b.boolean(true)},
      {b.string("When"), b.date(1.5)},
      {b.string("List"), b.array({b.string("x"), b.boolean(false)})},
      {b.string("LongText"), b.string(std::string(40, 'z'))},
  });
  TempDirectory dir;
  const auto value = reader().readFile(dir.write("Info.plist", b.finish(root)));
  ASSERT_TRUE(value.has_value());
  const PropertyDictionary* dict = value->dictionary();
  ASSERT_NE(dict, nullptr);
  EXPECT_EQ(dict->size(), 9u);
  EXPECT_EQ(dict->at("INIT_CONFIG"), PropertyValue("https://cfg.example/{key}"));
  EXPECT_EQ(dict->at("Blob"), PropertyValue(Bytes{0, 1, 't', 'e', 'x', 't'}));
  EXPECT_EQ(dict->at("Count"), PropertyValue(std::int64_t{300000}));
  EXPECT_EQ(dict->at("Negative"), PropertyValue(std::int64_t{-2}));
  EXPECT_EQ(dict->at("Ratio"), PropertyValue(-0.25));
  EXPECT_EQ(dict->at("On"), PropertyValue(true));
  EXPECT_EQ(dict->at("When"), PropertyValue(PropertyDate{1.5}));
  EXPECT_EQ(dict->at("List"), PropertyValue(PropertyArray{"x", false}));
  EXPECT_EQ(dict->at("LongText"), PropertyValue(std::string(40, 'z')));
}

TEST(PropertyListReader, DataAndTextStayDistinctTypes) {
  const auto xml =
      parsePropertyList(xmlDocument("<array><string>aGk=</string><data>aGk=</data></array>"));
  ASSERT_TRUE(xml.has_value());
  const PropertyArray& items = *xml->array();
  ASSERT_EQ(items.size(), 2u);
  ASSERT_NE(items[0].string(), nullptr);
  EXPECT_EQ(*items[0].string(), "aGk=");
  ASSERT_NE(items[1].data(), nullptr);
  EXPECT_EQ(*items[1].data(), toBytes("hi"));
}

TEST(PropertyListReader, RefusesWhatIsNotAPropertyList) {
  TempDirectory dir;
  const std::string valid = nestedBinaryArrays(2);
  const std::string xml = xmlDocument("<dict><key>a</key><string>b</string></dict>");
  const std::pair<const char*, std::string> cases[] = {
      {"empty", ""},
      {"garbage", "\x01\x02\x03 this is not a plist \xff"},
      {"json", R"({"a":"b"})"},
      {"truncated binary", valid.substr(0, valid.size() - 5)},
      {"binary without trailer", "bplist00\x50"},
      {"truncated xml", xml.substr(0, xml.size() / 2)},
      {"binary magic only", "bplist00"},
  };
  for (const auto& [label, content] : cases) {
    EXPECT_FALSE(reader().readFile(dir.write("bad.plist", content)).has_value()) << label;
    EXPECT_FALSE(parsePropertyList(content).has_value()) << label;
  }
  EXPECT_FALSE(reader().readFile(dir.file("missing.plist")).has_value());
  EXPECT_FALSE(reader().readFile(dir.path()).has_value());
}

TEST(PropertyListReader, RefusesBinaryObjectTablesThatPointOutside) {
  BinaryPlistBuilder b;
  std::string bytes = b.finish(b.array({b.string("a")}));
  std::string badRoot = bytes;
  badRoot[badRoot.size() - 9] = 9;  // root object index beyond the table
  EXPECT_FALSE(parsePropertyList(badRoot).has_value());
  std::string badOffsetTable = bytes;
  badOffsetTable[badOffsetTable.size() - 1] = static_cast<char>(0xF0);
  EXPECT_FALSE(parsePropertyList(badOffsetTable).has_value());
  std::string badReference = bytes;
  badReference[badReference.find('\xA1') + 4] = 7;  // the array refers to object 7 of 2
  EXPECT_FALSE(parsePropertyList(badReference).has_value());
}

TEST(PropertyListReader, NestingUpToTheBoundIsRead) {
  const auto binary = parsePropertyList(nestedBinaryArrays(detail::kMaxPropertyListDepth));
  ASSERT_TRUE(binary.has_value());
  EXPECT_EQ(nestingOf(*binary), detail::kMaxPropertyListDepth);
  const auto xml = parsePropertyList(nestedXmlArrays(detail::kMaxPropertyListDepth));
  ASSERT_TRUE(xml.has_value());
  EXPECT_EQ(nestingOf(*xml), detail::kMaxPropertyListDepth);
}

TEST(PropertyListReader, DeeperNestingIsRefusedWithoutCrashing) {
  TempDirectory dir;
  for (const int depth : {detail::kMaxPropertyListDepth + 1, 100000}) {
    EXPECT_FALSE(reader().readFile(dir.write("deep.bplist", nestedBinaryArrays(depth))).has_value())
        << depth;
    EXPECT_FALSE(reader().readFile(dir.write("deep.plist", nestedXmlArrays(depth))).has_value())
        << depth;
  }
}

TEST(PropertyListReader, TagsInsideCommentsAndCdataDoNotHideNesting) {
  std::string body;
  for (int i = 0; i < 80; ++i) body += "<array><!-- </array> --><![CDATA[</array>]]>";
  for (int i = 0; i < 80; ++i) body += "</array>";
  EXPECT_FALSE(parsePropertyList(xmlDocument(body)).has_value());
}

TEST(PropertyListReader, SharedObjectsThatExpandExponentiallyAreRefused) {
  // Each array holds the previous one twice: 40 levels expand to 2^40 values in a tree.
  BinaryPlistBuilder b;
  BinaryPlistBuilder::Ref current = b.string("leaf");
  for (int i = 0; i < 40; ++i) current = b.array({current, current});
  EXPECT_FALSE(parsePropertyList(b.finish(current)).has_value());
}

TEST(PropertyListReader, CyclicObjectGraphIsRefused) {
  BinaryPlistBuilder b;
  b.string("unused");
  const auto self = b.array({1});  // object 1 refers to itself
  EXPECT_FALSE(parsePropertyList(b.finish(self)).has_value());
}

TEST(PropertyListReader, DamagedFilesNeverCrashTheReader) {
  BinaryPlistBuilder b;
  const auto inner = b.dictionary({{b.string("k"), b.array({b.integer(-1), b.real(2.5)})}});
  const auto root = b.array({inner, inner, b.data("\x01\x02"), b.boolean(true), b.date(3),
                             b.string(std::string(20, 's'))});
  const std::string binary = b.finish(root);
  ASSERT_TRUE(parsePropertyList(binary).has_value());
  EXPECT_GT(parseEverySingleByteMutation(binary), 0);
  const std::string xml = xmlDocument(
      "<dict><key>a</key><array><integer>1</integer><real>0.5</real><data>AQI=</data>"
      "<date>2001-01-01T00:00:00Z</date><true/></array><key>b</key><dict/></dict>");
  ASSERT_TRUE(parsePropertyList(xml).has_value());
  EXPECT_GT(parseEverySingleByteMutation(xml), 0);
}

TEST(PropertyListReader, OversizeFileIsRefused) {
  TempDirectory dir;
  const std::string small = xmlDocument("<string>ok</string>");
  std::string big =
      xmlDocument("<string>" + std::string(detail::kMaxPropertyListBytes, 'x') + "</string>");
  EXPECT_TRUE(reader().readFile(dir.write("small.plist", small)).has_value());
  EXPECT_FALSE(reader().readFile(dir.write("big.plist", big)).has_value());
  EXPECT_FALSE(parsePropertyList(big).has_value());
}

TEST(PropertyListCodec, BinaryEncodingRoundTripsEveryType) {
  const PropertyValue original(PropertyDictionary{
      {"text", "caf\xc3\xa9 \xe2\x82\xac"},
      {"bytes", Bytes{0, 255, 10}},
      {"emptyBytes", Bytes{}},
      {"emptyText", ""},
      {"headers", makeStringDictionary({{"X-A", "1"}, {"X-B", "two"}})},
      {"list", PropertyArray{std::int64_t{-9}, std::int64_t{1} << 40, 0.125, true, false}},
      {"date", PropertyDate{700000000.5}},
  });
  const auto encoded = detail::encodeBinaryPropertyList(original);
  ASSERT_TRUE(encoded.has_value());
  EXPECT_EQ(toString(*encoded).substr(0, 8), "bplist00");
  EXPECT_EQ(parsePropertyList(toString(*encoded)), original);
}

TEST(PropertyListCodec, RefusesValuesItCannotRepresent) {
  EXPECT_FALSE(detail::encodeBinaryPropertyList(std::string("a\0b", 3)).has_value());
  EXPECT_FALSE(detail::encodeBinaryPropertyList(std::string("\xff")).has_value());
  EXPECT_FALSE(detail::encodeBinaryPropertyList(PropertyDictionary{{"\xc3", "v"}}).has_value());
  PropertyValue deep = "leaf";
  for (int i = 0; i <= detail::kMaxPropertyListDepth; ++i) deep = PropertyArray{deep};
  EXPECT_FALSE(detail::encodeBinaryPropertyList(deep).has_value());
  EXPECT_TRUE(detail::encodeBinaryPropertyList(*deep.array()->data()).has_value());
}

}  // namespace
}  // namespace platform
