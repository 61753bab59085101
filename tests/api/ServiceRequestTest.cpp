// The request the API service builds (method, time-out, header set in order) and how it classifies
// a finished exchange.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KitInternals.h"

namespace zelnora_core {
namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;
using platform::Bytes;
using platform::Error;
using platform::HTTPURLResponse;

APIRequest record(HTTPMethod method, std::optional<Bytes> body,
                  std::optional<std::map<std::string, std::string>> headers = std::nullopt) {
  return APIRequest(APIEndpoint::sendAppTracking, method, std::nullopt, std::nullopt,
                    std::move(headers), std::move(body));
}

platform::Url url(const std::string& text) { return *platform::Url::parse(text); }

ZAConfig config(std::optional<std::string> channel) {
  return ZAConfig{"nt", "nai", std::nullopt, std::move(channel)};
}

TEST(ServiceRequest, PostCarriesTheFixedHeadersInOrderAndTheBody) {
  const Bytes body(57, 'x');
  auto request =
      detail::makeURLRequest(record(HTTPMethod::post, body), url("http://api.test/tracker/app"),
                             std::nullopt, std::nullopt);
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->httpMethod, "POST");
  EXPECT_EQ(request->timeoutInterval.count(), 60.0);
  EXPECT_EQ(request->cachePolicy, platform::CachePolicy::useProtocolCachePolicy);
  EXPECT_EQ(request->url.absoluteString(), "http://api.test/tracker/app");
  EXPECT_EQ(request->allHTTPHeaderFields.fields(),
            (Fields{{"Content-Type", "application/json; charset=UTF-8"},
                    {"Accept", "*/*"},
                    {"Content-Length", "57"},
                    {"Host", "api.test"}}));
  EXPECT_EQ(request->httpBody, body);
}

TEST(ServiceRequest, MethodRawValuesAndZeroLengthWithoutBody) {
  for (auto [method, raw] : std::vector<std::pair<HTTPMethod, std::string>>{
           {HTTPMethod::get, "GET"}, {HTTPMethod::put, "PUT"}, {HTTPMethod::delete_, "DELETE"}}) {
    auto request = detail::makeURLRequest(record(method, std::nullopt), url("http://h/x"), {}, {});
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->httpMethod, raw);
    EXPECT_EQ(request->allHTTPHeaderFields.value("Content-Length"), "0");
    EXPECT_EQ(request->allHTTPHeaderFields.value("Content-Type"),
              "application/json; charset=UTF-8");
    EXPECT_FALSE(request->httpBody.has_value());
  }
}

TEST(ServiceRequest, HostHeaderHoldsOnlyTheHostName) {
  auto request = detail::makeURLRequest(record(HTTPMethod::get, std::nullopt),
                                        url("http://127.0.0.1:8080/a/b?c=d"), {}, {});
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->allHTTPHeaderFields.value("Host"), "127.0.0.1");
}

TEST(ServiceRequest, UrlWithoutHostFormsNoRequest) {
  EXPECT_FALSE(detail::makeURLRequest(record(HTTPMethod::get, std::nullopt),
                                      url("file:///tmp/tracker/app"), {}, {})
                   .has_value());
}

TEST(ServiceRequest, ChannelHeaderOnlyWhenTheStoredConfigurationHasOne) {
  const APIRequest get = record(HTTPMethod::get, std::nullopt);
  auto with = detail::makeURLRequest(get, url("http://h/"), config("chan-1"), {});
  EXPECT_EQ(with->allHTTPHeaderFields.fields().at(4),
            (std::pair<std::string, std::string>{"X-ZELNORA-CHANNEL-UUID", "chan-1"}));
  for (const auto& missing : {std::optional<ZAConfig>(), std::optional(config(std::nullopt))}) {
    auto without = detail::makeURLRequest(get, url("http://h/"), missing, {});
    EXPECT_EQ(without->allHTTPHeaderFields.value("X-ZELNORA-CHANNEL-UUID"), std::nullopt);
    EXPECT_EQ(without->allHTTPHeaderFields.fields().size(), 4u);
  }
}

TEST(ServiceRequest, CustomHeadersFollowInMapOrderWithAddSemantics) {
  const std::map<std::string, std::string> custom{
      {"accept", "text/html"}, {"X-B", "2"}, {"X-A", "1"}};
  auto request = detail::makeURLRequest(record(HTTPMethod::get, std::nullopt), url("http://h/"),
                                        config("c"), custom);
  EXPECT_EQ(request->allHTTPHeaderFields.fields(),
            (Fields{{"Content-Type", "application/json; charset=UTF-8"},
                    {"Accept", "*/*,text/html"},
                    {"Content-Length", "0"},
                    {"Host", "h"},
                    {"X-ZELNORA-CHANNEL-UUID", "c"},
                    {"X-A", "1"},
                    {"X-B", "2"}}));
}

TEST(ServiceRequest, RecordHeadersAreNeverSent) {
  auto request = detail::makeURLRequest(
      record(HTTPMethod::get, std::nullopt, {{{"X-Record", "1"}, {"Accept", "x"}}}),
      url("http://h/"), {}, {});
  EXPECT_EQ(request->allHTTPHeaderFields.value("X-Record"), std::nullopt);
  EXPECT_EQ(request->allHTTPHeaderFields.value("Accept"), "*/*");
}

// Injected lines and names that are not header names never reach the request.
TEST(ServiceRequest, UnsafeCustomHeadersAndChannelAreLeftOut) {
  const std::map<std::string, std::string> custom{{"X-Cr", "a\rb"},
                                                  {"X-Lf", "a\nInjected: 1"},
                                                  {"X-Nul", std::string("a\0b", 3)},
                                                  {"Bad Name", "v"},
                                                  {"X-Colon:", "v"},
                                                  {"", "v"},
                                                  {"Accept", "a\r\nB: c"},
                                                  {"X-Fine", "ok"}};
  auto request = detail::makeURLRequest(record(HTTPMethod::post, Bytes{'a', 'b'}), url("http://h/"),
                                        config("chan\r\nX-Evil: 1"), custom);
  EXPECT_EQ(request->allHTTPHeaderFields.fields(),
            (Fields{{"Content-Type", "application/json; charset=UTF-8"},
                    {"Accept", "*/*"},
                    {"Content-Length", "2"},
                    {"Host", "h"},
                    {"X-Fine", "ok"}}));
}

struct OutcomeCase {
  const char* name;
  std::optional<Bytes> body;
  std::optional<HTTPURLResponse> response;
  std::optional<Error> error;
  bool passesBodyAndResponse;
  std::optional<Error> expectedError;
};

class OutcomeClassification : public ::testing::TestWithParam<OutcomeCase> {};

TEST_P(OutcomeClassification, GivesTheCompletionItsArguments) {
  const OutcomeCase& c = GetParam();
  detail::Outcome outcome = detail::classifyOutcome(c.body, c.response, c.error);
  EXPECT_EQ(outcome.error, c.expectedError);
  if (c.passesBodyAndResponse) {
    EXPECT_EQ(outcome.body, c.body);
    ASSERT_TRUE(outcome.response.has_value());
    EXPECT_EQ(outcome.response->statusCode, c.response->statusCode);
  } else {
    EXPECT_FALSE(outcome.body.has_value());
    EXPECT_FALSE(outcome.response.has_value());
  }
}

HTTPURLResponse status(int code) { return HTTPURLResponse{code, "http://h/", {}}; }
const Error kTransport{"NSURLErrorDomain", -1004, "Could not connect to the server."};
const Bytes kBody{'{', '}'};

INSTANTIATE_TEST_SUITE_P(
    Table, OutcomeClassification,
    ::testing::Values(OutcomeCase{"TransportErrorWinsOverEverything", kBody, status(200),
                                  kTransport, false, kTransport},
                      OutcomeCase{"NoBodyIsDataError", std::nullopt, status(200), std::nullopt,
                                  false, Error{"Data", -1, std::nullopt}},
                      OutcomeCase{"Ok", kBody, status(200), std::nullopt, true, std::nullopt},
                      OutcomeCase{"NoContentWithEmptyBodyIsSuccess", Bytes{}, status(204),
                                  std::nullopt, true, std::nullopt},
                      OutcomeCase{"UpperEdge299", kBody, status(299), std::nullopt, true,
                                  std::nullopt},
                      OutcomeCase{"Redirect300", kBody, status(300), std::nullopt, false,
                                  Error{"StatusCode", 300, std::nullopt}},
                      OutcomeCase{"Informational199", kBody, status(199), std::nullopt, false,
                                  Error{"StatusCode", 199, std::nullopt}},
                      OutcomeCase{"NotFound", kBody, status(404), std::nullopt, false,
                                  Error{"StatusCode", 404, std::nullopt}},
                      OutcomeCase{"NoHttpResponse", kBody, std::nullopt, std::nullopt, false,
                                  Error{"StatusCode", -1, std::nullopt}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace zelnora_core
