// The text formats the kit writes and reads byte for byte: URLs and their components, query
// encoding, header fields, error descriptions, JSON and UTF-8.
#include <gtest/gtest.h>

#include "platform/UrlSession.h"
#include "platform/internal/Json.h"

namespace platform {
namespace {

using namespace std::string_literals;

TEST(Url, AbsoluteUrlsKeepTheirTextAndComponentsSplitAndRebuild) {
  // clang-format off
  const std::pair<std::string, bool> cases[] = {
      {"http://h", true}, {"https://api.example.com/v1?x=1", true}, {"http://h/{key}/c", true},
      {"HTTP://Example.COM/", true}, {"file:///tmp/x", true}, {"http://u:p@h/p?q#f", true},
      {"http://h/p?", true}, {"api.example.com/path", false}, {"/relative", false}, {"", false},
      {"http://h/a b", false}, {"http://h/\r\nX: y", false}, {"http://h:99999/", false},
      {"http://h:80a/", false}, {"http://", false}, {"http://h/a\0b"s, false}};
  // clang-format on
  for (const auto& [text, accepted] : cases) {
    const auto url = Url::parse(text);
    EXPECT_EQ(url ? url->absoluteString() : "(refused)", accepted ? text : "(refused)");
  }
  EXPECT_EQ(Url::parse("file:///tmp/x")->host(), std::nullopt);

  const auto parts = UrlComponents::parse("https://u:p@ex%61mple.com:8443/a%20b/c?x=%41+1&y#frag");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->scheme() + " " + *parts->host() + " " + std::to_string(*parts->port()),
            "https example.com 8443");
  EXPECT_EQ(parts->percentEncodedPath() + " " + parts->path(), "/a%20b/c /a b/c");
  EXPECT_EQ(*parts->percentEncodedQuery() + " " + *parts->query(), "x=%41+1&y x=A+1&y");
  EXPECT_EQ(UrlComponents::parse("http://h/p")->query(), std::nullopt);
  EXPECT_FALSE(UrlComponents::parse("/tracker/app?x=1")->url()) << "not absolute";
  for (const char* bad : {"http://h/a b", "http://h:70000/", "http://[::1/", "1a:b/c"}) {
    EXPECT_FALSE(UrlComponents::parse(bad)) << bad;
  }
  for (const char* text : {"http://h", "https://u:p@h.example:8443/a%20b?q=1#frag",
                           "http://[::1]:8080/p?", "file:///tmp/x"}) {
    EXPECT_EQ(UrlComponents::parse(text)->url()->absoluteString(), text);
  }
}

TEST(Url, QueryItemsAreEncodedWithUpperCaseHexAndDecodeBack) {
  auto parts = UrlComponents::parse("https://h.example/path?old=1");
  parts->setQueryItems({{"a b", "x&y=z"},
                        {"plus", "1+1"},
                        {"uni", "\xC3\xA9\xE2\x82\xAC"},
                        {"kept", "-._~!$'()*,;:@/?"},
                        {"hash#", "%"}});
  EXPECT_EQ(parts->url()->absoluteString(),
            "https://h.example/path?a%20b=x%26y%3Dz&plus=1%2B1&uni=%C3%A9%E2%82%AC"
            "&kept=-._~!$'()*,;:@/?&hash%23=%25");
  parts->setQueryItems({});
  EXPECT_EQ(parts->url()->absoluteString(), "https://h.example/path?");
  EXPECT_EQ(percentDecode("a%20b%2Bc+d%zz%4%e2%82%ac"), "a b+c+d%zz%4\xE2\x82\xAC");
  EXPECT_EQ(percentDecode(percentEncodeQueryComponent("\0\x01\xFF =&"s)), "\0\x01\xFF =&"s);
}

TEST(HeaderFields, AddJoinsWithCommaIgnoringCaseAndSetReplaces) {
  HeaderFields fields;
  fields.addValue("application/json", "Content-Type");
  fields.addValue("*/*", "Accept");
  fields.addValue("text/plain", "accept");
  fields.addValue("", "ACCEPT");
  const std::vector<std::pair<std::string, std::string>> expected{
      {"Content-Type", "application/json"}, {"Accept", "*/*,text/plain,"}};
  EXPECT_EQ(fields.fields(), expected);
  fields.setValue("x", "content-type");
  EXPECT_EQ(fields.fields().front().second, "x");
  EXPECT_EQ(fields.value("c"), std::nullopt);
}

TEST(Json, WriterEscapesLikeThePhoneEncoder) {
  const std::pair<std::string, std::string> cases[] = {
      {"a\"b\\c", R"("a\"b\\c")"},
      {"https://x.example/a", R"("https:\/\/x.example\/a")"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {"\0\x01\x0b\x1b\x1f"s, R"("\u0000\u0001\u000b\u001b\u001f")"},
      {"\x7f caf\xc3\xa9 \xe2\x80\xa8 \xf0\x9f\x98\x80",
       "\"\x7f caf\xc3\xa9 \xe2\x80\xa8 \xf0\x9f\x98\x80\""},
  };
  for (const auto& [input, expected] : cases) {
    std::string out = "[";
    appendJsonString(out, input);
    EXPECT_EQ(out, "[" + expected) << input;
  }
  JsonObjectWriter writer;
  writer.string("z", "last/first").boolean("a", true).raw("n", R"({"k":[1]})").boolean("b", false);
  writer.string("a\"/\n", "");
  EXPECT_EQ(std::move(writer).finish(),
            R"({"z":"last\/first","a":true,"n":{"k":[1]},"b":false,"a\"\/\n":""})");
  EXPECT_EQ(JsonObjectWriter().finish(), "{}");
}

TEST(Json, ParserAcceptsStrictJsonInValidUtf8Only) {
  const auto value = parseJson(R"( {"n":[1,2.5,null],"s":"caf\u00e9 \/","d":1,"d":{"x":true}} )");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->dump(), R"({"d":{"x":true},"n":[1,2.5,null],"s":"café /"})");
  EXPECT_EQ(parseJson(toBytes("42")), nlohmann::json(42));
  // clang-format off
  const std::string refused[] = {"", "  ", R"({"a":1} x)", "[1,2,]", "{'a':1}", "nul", R"("open)",
      "\"caf\xc3\"", "\"\xed\xa0\x80\"", "\"\xc0\xaf\"", "[1]\xff",
      std::string(200000, '[') + std::string(200000, ']')};
  const std::pair<std::string, bool> utf8[] = {{"ascii", true},
      {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", true}, {"\0"s, true}, {"\xf4\x8f\xbf\xbf", true},
      {"\x80", false}, {"\xc3", false}, {"\xc0\x80", false}, {"\xe0\x80\xaf", false},
      {"\xed\xa0\x80", false}, {"\xf4\x90\x80\x80", false}, {"\xf5\x80\x80\x80", false},
      {"\xe2\x28\xa1", false}};
  // clang-format on
  for (const std::string& text : refused) EXPECT_FALSE(parseJson(text)) << text.substr(0, 20);
  for (const auto& [bytes, valid] : utf8) {
    EXPECT_EQ(isValidUtf8(bytes), valid) << ::testing::PrintToString(bytes);
  }
}

}  // namespace
}  // namespace platform
