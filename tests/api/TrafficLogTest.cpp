// The OUTGOING and INCOMMING dump texts, byte for byte, and how they are written.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KitInternals.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/ScopedServices.h"

namespace zelnora_core {
namespace {

using platform::Bytes;
using platform::Error;
using platform::HTTPURLResponse;

platform::URLRequest makeRequest(const std::string& url, const std::string& method,
                                 const std::vector<std::pair<std::string, std::string>>& headers,
                                 std::optional<Bytes> body) {
  platform::URLRequest request(*platform::Url::parse(url));
  request.httpMethod = method;
  for (const auto& [name, value] : headers) request.addValue(value, name);
  request.httpBody = std::move(body);
  return request;
}

struct OutgoingCase {
  const char* name;
  platform::URLRequest request;
  std::string expected;
};

class OutgoingDump : public ::testing::TestWithParam<OutgoingCase> {};

TEST_P(OutgoingDump, IsExactlyTheExpectedText) {
  EXPECT_EQ(detail::outgoingText(GetParam().request), GetParam().expected);
}

const std::vector<std::pair<std::string, std::string>> kKitHeaders{
    {"Content-Type", "application/json; charset=UTF-8"},
    {"Accept", "*/*"},
    {"Content-Length", "13"},
    {"Host", "127.0.0.1"}};

INSTANTIATE_TEST_SUITE_P(
    Table, OutgoingDump,
    ::testing::Values(
        OutgoingCase{"PostWithJsonBody",
                     makeRequest("http://127.0.0.1:8080/tracker/app", "POST", kKitHeaders,
                                 platform::toBytes(R"({"a":"b\/c"})")),
                     "http://127.0.0.1:8080/tracker/app \n\n\nPOST /tracker/app? HTTP/1.1 \n\n"
                     "HOST: 127.0.0.1\n"
                     "Content-Type: application/json; charset=UTF-8 \nAccept: */* \n"
                     "Content-Length: 13 \nHost: 127.0.0.1 \n"
                     "\n {\"a\":\"b\\/c\"}"},
        OutgoingCase{"GetWithoutBodyEndsAfterTheLastHeader",
                     makeRequest("https://api.test/campaign/v3/7", "GET",
                                 {{"Accept", "*/*"}, {"Accept", "text/plain"}}, std::nullopt),
                     "https://api.test/campaign/v3/7 \n\n\nGET /campaign/v3/7? HTTP/1.1 \n\n"
                     "HOST: api.test\nAccept: */*,text/plain \n"},
        OutgoingCase{"PercentEncodingRemovedFromPathAndQuery",
                     makeRequest("http://api.test/a%20b/t?q=a%20b&s=%2F", "PUT", {}, std::nullopt),
                     "http://api.test/a%20b/t?q=a%20b&s=%2F \n\n\nPUT /a b/t?q=a b&s=/ HTTP/1.1 "
                     "\n\nHOST: api.test\n"},
        OutgoingCase{"EmptyBodyStillWritesItsPiece",
                     makeRequest("http://h/", "DELETE", {}, Bytes{}),
                     "http://h/ \n\n\nDELETE /? HTTP/1.1 \n\nHOST: h\n\n "},
        OutgoingCase{"BodyThatIsNotUtf8ShowsEmpty",
                     makeRequest("http://h/x", "POST", {}, Bytes{0x7B, 0xFF, 0xFE, 0x7D}),
                     "http://h/x \n\n\nPOST /x? HTTP/1.1 \n\nHOST: h\n\n "},
        OutgoingCase{"HeaderThatWouldInjectALineIsNotShown",
                     makeRequest("http://h/x", "GET",
                                 {{"X-Ok", "1"},
                                  {"X-Bad", "v\r\nInjected: yes"},
                                  {"X-Nul", std::string("a\0b", 3)},
                                  {"Bad Name", "2"}},
                                 std::nullopt),
                     "http://h/x \n\n\nGET /x? HTTP/1.1 \n\nHOST: h\nX-Ok: 1 \n"}),
    [](const auto& info) { return std::string(info.param.name); });

struct IncomingCase {
  const char* name;
  std::optional<HTTPURLResponse> response;
  std::optional<Bytes> body;
  std::optional<Error> error;
  std::string expected;
};

class IncomingDump : public ::testing::TestWithParam<IncomingCase> {};

TEST_P(IncomingDump, IsExactlyTheExpectedText) {
  const IncomingCase& c = GetParam();
  EXPECT_EQ(detail::incomingText(c.response, c.body, c.error), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IncomingDump,
    ::testing::Values(
        IncomingCase{"TransportErrorOnly", std::nullopt, std::nullopt,
                     Error{"NSURLErrorDomain", -1004, "Could not connect to the server."},
                     "\nError: Could not connect to the server.\n"},
        IncomingCase{
            "KitErrorUsesTheDerivedDescription", std::nullopt, std::nullopt,
            Error{"StatusCode", 404, std::nullopt},
            "\nError: The operation couldn\u2019t be completed. (StatusCode error 404.)\n"},
        IncomingCase{"OkWithEmptyBody",
                     HTTPURLResponse{200,
                                     "http://127.0.0.1:8080/tracker/app?x=1%202",
                                     {{"Content-Type", "text/plain"}, {"Content-Length", "0"}}},
                     Bytes{}, std::nullopt,
                     "http://127.0.0.1:8080/tracker/app?x=1%202\n\nHTTP 200 /tracker/app?x=1 2\n"
                     "Host: 127.0.0.1\nContent-Type: text/plain\nContent-Length: 0\n\n\n"},
        IncomingCase{"NotFoundWithJsonBody",
                     HTTPURLResponse{404, "https://api.test/tracker", {{"X-A", "1, 2"}}},
                     platform::toBytes(R"({"error":"not found"})"), std::nullopt,
                     "https://api.test/tracker\n\nHTTP 404 /tracker?\nHost: api.test\nX-A: 1, 2\n"
                     "\n{\"error\":\"not found\"}\n"},
        IncomingCase{"BodyThatIsNotUtf8ShowsEmpty", HTTPURLResponse{200, "http://h/", {}},
                     Bytes{0xC3, 0x28}, std::nullopt, "http://h/\n\nHTTP 200 /?\nHost: h\n\n\n"},
        IncomingCase{"ResponseWithoutUrlHasNoUrlOrHostLine", HTTPURLResponse{500, "", {}},
                     platform::toBytes("boom"), std::nullopt, "HTTP 500 ?\n\nboom\n"},
        IncomingCase{"NothingAtAllIsEmpty", std::nullopt, std::nullopt, std::nullopt, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TrafficLogWriting, EachBlockIsThreePiecesEachWithItsOwnLineFeed) {
  platform::testing::FakeConsole console;
  platform::testing::ScopedServices guard([&](auto& s) { s.console = &console; });
  const platform::URLRequest request = makeRequest("http://h/x", "GET", {}, std::nullopt);
  detail::logRequest(request);
  detail::logResponse(std::nullopt, std::nullopt, Error{"Data", -1, std::nullopt});

  const std::vector<std::string> expected{
      "\n - - - - - - - - - - OUTGOING - - - - - - - - - - \n\n",
      "http://h/x \n\n\nGET /x? HTTP/1.1 \n\nHOST: h\n\n",
      "\n - - - - - - - - - -  END - - - - - - - - - - \n\n",
      "\n - - - - - - - - - - INCOMMING - - - - - - - - - - \n\n",
      "\nError: The operation couldn\u2019t be completed. (Data error -1.)\n\n",
      "\n - - - - - - - - - -  END - - - - - - - - - - \n\n",
  };
  EXPECT_EQ(console.pieces(), expected);
}

TEST(TrafficLogWriting, LargeBodyIsWrittenWholeInOnePiece) {
  platform::testing::FakeConsole console;
  platform::testing::ScopedServices guard([&](auto& s) { s.console = &console; });
  const std::string body(1 << 20, 'x');
  detail::logRequest(makeRequest("http://h/x", "POST", {}, platform::toBytes(body)));
  ASSERT_EQ(console.pieces().size(), 3u);
  const std::string text = console.pieces()[1];
  EXPECT_EQ(text.substr(text.size() - body.size() - 3), "\n " + body + "\n");
}

}  // namespace
}  // namespace zelnora_core
