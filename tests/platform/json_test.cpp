#include "platform/Json.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/Bytes.h"

namespace platform {
namespace {

std::string jsonLiteral(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

struct EscapeCase {
  std::string input;
  std::string expected;
};

TEST(JsonStringWriter, EscapesLikeThePhoneEncoder) {
  const EscapeCase cases[] = {
      {"", R"("")"},
      {"plain", R"("plain")"},
      {"a\"b", R"("a\"b")"},
      {"back\\slash", R"("back\\slash")"},
      {"https://x.example/a/b", R"("https:\/\/x.example\/a\/b")"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {std::string("\0", 1), R"("\u0000")"},
      {"\x01\x1f", R"("\u0001\u001f")"},
      {"\x0b", R"("\u000b")"},
      {"\x1b[0m", R"("\u001b[0m")"},
      {"del\x7f", "\"del\x7f\""},
      {"caf\xc3\xa9", "\"caf\xc3\xa9\""},
      {"line\xe2\x80\xa8sep\xe2\x80\xa9", "\"line\xe2\x80\xa8sep\xe2\x80\xa9\""},
      {"emoji \xf0\x9f\x98\x80", "\"emoji \xf0\x9f\x98\x80\""},
      {"it\xe2\x80\x99s", "\"it\xe2\x80\x99s\""},
  };
  for (const EscapeCase& c : cases) {
    EXPECT_EQ(jsonLiteral(c.input), c.expected) << "input: " << c.input;
  }
}

TEST(JsonStringWriter, AppendsToExistingText) {
  std::string out = "[";
  appendJsonString(out, "a/b");
  EXPECT_EQ(out, R"(["a\/b")");
}

TEST(JsonObjectWriter, WritesMembersInCallOrderCompactly) {
  JsonObjectWriter writer;
  writer.string("z", "last/first")
      .boolean("a", true)
      .raw("nested", R"({"k":[1,2]})")
      .boolean("off", false);
  const std::string text = std::move(writer).finish();
  EXPECT_EQ(text, R"({"z":"last\/first","a":true,"nested":{"k":[1,2]},"off":false})");
}

TEST(JsonObjectWriter, EmptyObjectAndEscapedKeys) {
  EXPECT_EQ(JsonObjectWriter().finish(), "{}");
  JsonObjectWriter writer;
  writer.string("a\"/\n", "");
  EXPECT_EQ(std::move(writer).finish(), R"({"a\"\/\n":""})");
}

TEST(JsonObjectWriter, OutputParsesBackToTheSameValues) {
  JsonObjectWriter writer;
  writer.string("url", "http://h/p?q=\"1\"\t").string("u", "\x01\xc3\xa9");
  const std::string text = std::move(writer).finish();
  const auto parsed = parseJson(text);
  ASSERT_TRUE(parsed.has_value());
  EXPECT_EQ((*parsed)["url"], "http://h/p?q=\"1\"\t");
  EXPECT_EQ((*parsed)["u"], "\x01\xc3\xa9");
}

std::string nestedArrays(int depth) {
  return std::string(static_cast<size_t>(depth), '[') +
         std::string(static_cast<size_t>(depth), ']');
}

std::string nestedObjects(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += R"({"a":)";
  text += "1";
  text += std::string(static_cast<size_t>(depth), '}');
  return text;
}

TEST(JsonParse, AcceptsNestingUpToTheLimit) {
  EXPECT_TRUE(parseJson(nestedArrays(kMaxJsonDepth)).has_value());
  EXPECT_TRUE(parseJson(nestedObjects(kMaxJsonDepth)).has_value());
  const std::string mixed = R"([{"a":)" + nestedArrays(kMaxJsonDepth - 2) + "}]";
  EXPECT_TRUE(parseJson(mixed).has_value());
}

TEST(JsonParse, RefusesNestingBeyondTheLimit) {
  EXPECT_FALSE(parseJson(nestedArrays(kMaxJsonDepth + 1)).has_value());
  EXPECT_FALSE(parseJson(nestedObjects(kMaxJsonDepth + 1)).has_value());
  // Deep enough that building the value (or dumping it) would exhaust the stack.
  EXPECT_FALSE(parseJson(nestedArrays(200000)).has_value());
  const std::string deepInside = R"({"ok":1,"deep":)" + nestedArrays(kMaxJsonDepth) + "}";
  EXPECT_FALSE(parseJson(deepInside).has_value());
}

TEST(JsonParse, RefusesMalformedInput) {
  const std::string bad[] = {
      "",
      "   ",
      R"({"a":1} x)",
      R"({"a":1}{})",
      "[1,2,]",
      R"({"a":1,})",
      "{'a':1}",
      R"({"a":1} // comment)",
      "\"caf\xc3\"",
      "\"\xed\xa0\x80\"",      // encoded surrogate
      "\"\xc0\xaf\"",          // overlong "/"
      "\"\xf4\x90\x80\x80\"",  // above U+10FFFF
      "[1]\xff",
      "nul",
      R"("unterminated)",
  };
  for (const std::string& text : bad) {
    EXPECT_FALSE(parseJson(text).has_value()) << "input: " << text;
  }
}

TEST(JsonParse, ParsesValidDocuments) {
  const auto value = parseJson(R"( {"nt":"push","k":false,"n":[1,2.5,null],"s":"caf\u00e9 \/"} )");
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ((*value)["nt"], "push");
  EXPECT_EQ((*value)["k"], false);
  EXPECT_EQ((*value)["n"].size(), 3u);
  EXPECT_EQ((*value)["s"], "caf\xc3\xa9 /");
  EXPECT_EQ(parseJson("42"), nlohmann::json(42));
  EXPECT_EQ(parseJson(toBytes(R"("x")")), nlohmann::json("x"));
}

TEST(JsonParse, DuplicateKeysKeepTheLastValue) {
  const auto value = parseJson(R"({"a":1,"b":2,"a":{"x":true}})");
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ(value->size(), 2u);
  EXPECT_EQ((*value)["a"], nlohmann::json({{"x", true}}));
}

struct Utf8Case {
  std::string bytes;
  bool valid;
};

TEST(Utf8Validation, AcceptsWellFormedAndRefusesTheRest) {
  const Utf8Case cases[] = {
      {"", true},
      {"ascii", true},
      {"\xc3\xa9", true},
      {"\xe2\x82\xac", true},
      {"\xf0\x9f\x98\x80", true},
      {"\xef\xbf\xbf", true},
      {"\xf4\x8f\xbf\xbf", true},
      {std::string("\0", 1), true},
      {"\x80", false},
      {"\xc3", false},
      {"\xc0\x80", false},
      {"\xc1\xbf", false},
      {"\xe0\x80\xaf", false},
      {"\xed\xa0\x80", false},
      {"\xed\xbf\xbf", false},
      {"\xf0\x80\x80\xaf", false},
      {"\xf4\x90\x80\x80", false},
      {"\xf5\x80\x80\x80", false},
      {"\xe2\x82", false},
      {"\xe2\x28\xa1", false},
      {"\xff", false},
  };
  for (const Utf8Case& c : cases) {
    EXPECT_EQ(isValidUtf8(c.bytes), c.valid) << "bytes of length " << c.bytes.size();
  }
}

}  // namespace
}  // namespace platform
