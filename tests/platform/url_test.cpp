// URL parsing, components, query encoding, header add semantics and error descriptions.
#include "platform/Url.h"

#include <gtest/gtest.h>

#include "platform/Error.h"
#include "platform/UrlSession.h"

namespace platform {
namespace {

struct ParseCase {
  std::string text;
  bool accepted;
  friend void PrintTo(const ParseCase& c, std::ostream* os) {
    *os << (c.accepted ? "accepts " : "rejects ") << ::testing::PrintToString(c.text);
  }
};

class UrlParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(UrlParseTest, AcceptsOnlyAbsoluteUrls) {
  const auto& [text, accepted] = GetParam();
  const auto url = Url::parse(text);
  EXPECT_EQ(url.has_value(), accepted) << text;
  if (url) {
    EXPECT_EQ(url->absoluteString(), text) << "the text is kept as given";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, UrlParseTest,
    ::testing::Values(
        ParseCase{"http://h", true}, ParseCase{"https://api.example.com/v1?x=1", true},
        ParseCase{"http://h/{key}/config", true}, ParseCase{"http://h:8080/p", true},
        ParseCase{"http://[::1]:8080/p", true}, ParseCase{"HTTP://Example.COM/", true},
        ParseCase{"file:///tmp/x", true}, ParseCase{"http://u:p@h/p?q#f", true},
        ParseCase{"http://h/p?", true}, ParseCase{"custom+scheme://host/x", true},
        ParseCase{"api.example.com/path", false}, ParseCase{"/relative", false},
        ParseCase{"", false}, ParseCase{"http://h/a b", false}, ParseCase{"http://h/a\tb", false},
        ParseCase{"http://h/\r\nX: y", false}, ParseCase{"http://h:99999/", false},
        ParseCase{"http://h:80a/", false}, ParseCase{"http://", false},
        ParseCase{"1http://h/", false}, ParseCase{std::string("http://h/a\0b", 12), false}));

TEST(UrlTest, HostLeavesOutPortUserAndIpv6Brackets) {
  EXPECT_EQ(Url::parse("http://api.example.com:8443/x")->host(), "api.example.com");
  EXPECT_EQ(Url::parse("http://user:pw@h.example/x")->host(), "h.example");
  EXPECT_EQ(Url::parse("http://[::1]:8080/p")->host(), "::1");
  EXPECT_EQ(Url::parse("file:///tmp/x")->host(), std::nullopt);
}

TEST(UrlComponentsTest, SplitsEveryPartAndKeepsEncodedForms) {
  const auto parts = UrlComponents::parse("https://u:p@h.example:8443/a%20b/c?x=%41+1&y#frag");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->scheme(), "https");
  EXPECT_EQ(parts->host(), "h.example");
  EXPECT_EQ(parts->port(), 8443);
  EXPECT_EQ(parts->percentEncodedPath(), "/a%20b/c");
  EXPECT_EQ(parts->path(), "/a b/c");
  EXPECT_EQ(parts->percentEncodedQuery(), "x=%41+1&y");
  EXPECT_EQ(parts->query(), "x=A+1&y") << "'+' is not a space";
}

TEST(UrlComponentsTest, QueryAbsentWithoutQuestionMarkAndEmptyAfterTrailingOne) {
  EXPECT_EQ(UrlComponents::parse("http://h/p")->query(), std::nullopt);
  EXPECT_EQ(UrlComponents::parse("http://h/p?")->query(), "");
  EXPECT_EQ(UrlComponents::parse("http://h/p?#f")->query(), "");
  EXPECT_EQ(UrlComponents::parse("http://h")->path(), "");
}

TEST(UrlComponentsTest, DecodesHostAndIpv6) {
  EXPECT_EQ(UrlComponents::parse("http://ex%61mple.com/")->host(), "example.com");
  EXPECT_EQ(UrlComponents::parse("http://[fe80::1]:81/")->host(), "fe80::1");
  EXPECT_EQ(UrlComponents::parse("http://[fe80::1]:81/")->port(), 81);
}

TEST(UrlComponentsTest, RejectsMalformedText) {
  for (const char* text : {"http://h/a b", "http://h:70000/", "http://[::1/", "http://[::1]x/",
                           "1a:b/c", "http://h:8o/"}) {
    EXPECT_FALSE(UrlComponents::parse(text)) << text;
  }
}

TEST(UrlComponentsTest, ParsesWithoutBase) {
  const auto parts = UrlComponents::parse("/tracker/app?x=1");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->host(), std::nullopt);
  EXPECT_EQ(parts->path(), "/tracker/app");
  EXPECT_FALSE(parts->url()) << "not an absolute URL";
  EXPECT_TRUE(UrlComponents::parse(""));
}

TEST(UrlComponentsTest, SetQueryItemsEncodesWithUpperCaseHex) {
  auto parts = UrlComponents::parse("https://h.example/path?old=1");
  ASSERT_TRUE(parts);
  parts->setQueryItems({{"a b", "x&y=z"},
                        {"plus", "1+1"},
                        {"uni", "\xC3\xA9\xE2\x82\xAC"},
                        {"kept", "-._~!$'()*,;:@/?"},
                        {"hash#", "%"}});
  EXPECT_EQ(parts->percentEncodedQuery(),
            "a%20b=x%26y%3Dz&plus=1%2B1&uni=%C3%A9%E2%82%AC&kept=-._~!$'()*,;:@/?&hash%23=%25");
  EXPECT_EQ(parts->url()->absoluteString(),
            "https://h.example/path?a%20b=x%26y%3Dz&plus=1%2B1&uni=%C3%A9%E2%82%AC"
            "&kept=-._~!$'()*,;:@/?&hash%23=%25");
}

TEST(UrlComponentsTest, NoQueryItemsLeaveTrailingQuestionMark) {
  auto parts = UrlComponents::parse("http://h/p");
  parts->setQueryItems({});
  EXPECT_EQ(parts->url()->absoluteString(), "http://h/p?");
}

TEST(UrlComponentsTest, RebuildsEveryPart) {
  for (const char* text : {"http://h", "https://u:p@h.example:8443/a%20b?q=1#frag",
                           "http://[::1]:8080/p?", "file:///tmp/x", "http://u@h/"}) {
    const auto parts = UrlComponents::parse(text);
    ASSERT_TRUE(parts) << text;
    ASSERT_TRUE(parts->url()) << text;
    EXPECT_EQ(parts->url()->absoluteString(), text);
  }
}

TEST(PercentCodingTest, DecodeKeepsMalformedEscapesAndPlus) {
  EXPECT_EQ(percentDecode("a%20b%2Bc+d"), "a b+c+d");
  EXPECT_EQ(percentDecode("%zz%4"), "%zz%4");
  EXPECT_EQ(percentDecode("%"), "%");
  EXPECT_EQ(percentDecode("%e2%82%ac"), "\xE2\x82\xAC");
  EXPECT_EQ(percentDecode(percentEncodeQueryComponent(std::string("\0\x01\xFF =&", 6))),
            std::string("\0\x01\xFF =&", 6));
}

TEST(HeaderFieldsTest, AddAppendsAfterCommaIgnoringCaseInFirstOrder) {
  HeaderFields fields;
  fields.addValue("application/json", "Content-Type");
  fields.addValue("*/*", "Accept");
  fields.addValue("text/plain", "accept");
  fields.addValue("", "ACCEPT");
  EXPECT_EQ(fields.value("ACCEPT"), "*/*,text/plain,");
  const std::vector<std::pair<std::string, std::string>> expected{
      {"Content-Type", "application/json"}, {"Accept", "*/*,text/plain,"}};
  EXPECT_EQ(fields.fields(), expected);
}

TEST(HeaderFieldsTest, SetReplacesValueInPlace) {
  HeaderFields fields;
  fields.addValue("1", "A");
  fields.addValue("2", "B");
  fields.setValue("3", "a");
  EXPECT_EQ(fields.fields().front().second, "3");
  EXPECT_EQ(fields.value("b"), "2");
  EXPECT_EQ(fields.value("c"), std::nullopt);
}

TEST(HttpResponseTest, OnlyResponsesWithStatusAreHttp) {
  EXPECT_FALSE(asHTTPURLResponse(std::nullopt));
  EXPECT_FALSE(asHTTPURLResponse(URLResponse{"file:///x", std::nullopt, {}}));
  const auto http = asHTTPURLResponse(URLResponse{"http://h/", 404, {{"A", "b"}}});
  ASSERT_TRUE(http);
  EXPECT_EQ(http->statusCode, 404);
  EXPECT_EQ(http->url, "http://h/");
  EXPECT_EQ(http->allHeaderFields.size(), 1u);
}

TEST(ErrorTest, LocalizedDescriptionPrefersOwnText) {
  EXPECT_EQ((Error{"StatusCode", 404, std::nullopt}.localizedDescription()),
            "The operation couldn\xE2\x80\x99t be completed. (StatusCode error 404.)");
  EXPECT_EQ((Error{"Data", -1, std::nullopt}.localizedDescription()),
            "The operation couldn\xE2\x80\x99t be completed. (Data error -1.)");
  EXPECT_EQ((Error{kURLErrorDomain, -1001, "Timeout was reached"}.localizedDescription()),
            "Timeout was reached");
}

}  // namespace
}  // namespace platform
