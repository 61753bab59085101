// The requests the API service builds: their URLs (base, raw path, placeholders, parameters), their
// header fields and how the OUTGOING dump shows them, how a finished exchange becomes the
// completion's arguments, and the formatting of the device information map's values (the map
// itself is checked end to end).
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Url.h"
#include "zelnora_core/src/APIServiceDetail.h"
#include "zelnora_core/src/ReportDetail.h"
#include "zelnora_core/src/RequestUrl.h"
#include "zelnora_core/src/TrafficLog.h"

namespace zelnora_core {
namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;
using platform::Bytes;
using platform::Error;

// Text that would end a header line early never reaches the request: neither the channel nor a
// custom header can inject a line of its own.
TEST(ServiceRequest, HeaderValuesThatWouldInjectALineAreLeftOut) {
  const APIRequest record(APIEndpoint::sendAppTracking, HTTPMethod::delete_, std::nullopt,
                          std::nullopt, {{{"X-Record", "never sent"}}}, Bytes{'a'});
  auto request = detail::makeURLRequest(
      record, *platform::Url::parse("http://h:8080/t?q=1"),
      ZAConfig{"nt", "nai", std::nullopt, "chan\r\nX-Evil: 1"},
      {{{"X-Lf", "a\nInjected: 1"}, {"X-Cr", "a\rb"}, {"X-Colon:", "v"}, {"X-Fine", "ok"}}});
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->httpMethod, "DELETE");
  EXPECT_EQ(request->timeoutInterval.count(), 60.0);
  EXPECT_EQ(request->allHTTPHeaderFields.fields(),
            (Fields{{"Content-Type", "application/json; charset=UTF-8"},
                    {"Accept", "*/*"},
                    {"Content-Length", "1"},
                    {"Host", "h"},
                    {"X-Fine", "ok"}}));
}

TEST(ServiceRequest, OnlyA2xxAnswerWithABodyIsASuccess) {
  const Error lost{"NSURLErrorDomain", -1005, "The network connection was lost."};
  const Bytes body{'{', '}'};
  const std::tuple<std::optional<Bytes>, std::optional<int>, std::optional<Error>,
                   std::optional<Error>>
      cases[] = {
          {body, 200, lost, lost},  // the transport error wins
          {std::nullopt, 200, {}, Error{"Data", -1, {}}},
          {Bytes{}, 204, {}, {}},
          {body, 299, {}, {}},
          {body, 300, {}, Error{"StatusCode", 300, {}}},
          {body, 199, {}, Error{"StatusCode", 199, {}}},
          {body, std::nullopt, {}, Error{"StatusCode", -1, {}}},  // not an HTTP answer
      };
  for (const auto& [received, status, error, expected] : cases) {
    std::optional<platform::HTTPURLResponse> response;
    if (status) response = platform::HTTPURLResponse{*status, "http://h/", {}};
    const detail::Outcome outcome = detail::classifyOutcome(received, response, error);
    EXPECT_EQ(outcome.error, expected) << status.value_or(-1);
    EXPECT_EQ(outcome.body, expected ? std::nullopt : received);
    EXPECT_EQ(outcome.response.has_value(), !expected);
  }
}

using Placeholders = std::optional<std::map<std::string, std::string>>;
using Parameters = std::optional<std::map<std::string, ParameterValue>>;

TEST(RequestUrl, IsFormedFromBasePathPlaceholdersAndParameters) {
  const std::string campaign = "http://api.test/campaign/v3/{zoneId}";
  const std::tuple<std::string, Placeholders, Parameters, std::optional<std::string>> cases[] = {
      {"http://api.test//tracker", {}, {}, "http://api.test//tracker"},
      {campaign, {{{"other", "x"}}}, {}, "http://api.test/campaign/v3/{zoneId}"},
      {"http://api.test/{k}/{k}", {{{"k", "a/b"}}}, {}, "http://api.test/a/b/a/b"},
      {"http://api.test/t",
       {},
       {{{"n", std::int64_t{-3}}, {"f", 1.5}, {"off", false}}},
       "http://api.test/t?f=1.5&n=-3&off=false"},
      {"http://api.test/t", {}, {std::map<std::string, ParameterValue>{}}, "http://api.test/t?"},
      {"http://api.test/{q}",
       {{{"q", "x?old=1"}}},
       {{{"new", std::string("2")}}},
       "http://api.test/x?new=2"},
      {"/tracker/app", {}, {{{"a", true}}}, std::nullopt},
      {"http://api.test:99999/tracker", {}, {}, std::nullopt},
  };
  for (const auto& [text, placeholders, parameters, expected] : cases) {
    std::optional<platform::Url> url = detail::formRequestUrl(text, placeholders, parameters);
    EXPECT_EQ(url ? std::optional(url->absoluteString()) : std::nullopt, expected) << text;
  }
}

TEST(RequestUrl, ParameterValuesAreWrittenInTheirTextualForm) {
  const std::pair<ParameterValue, std::string> cases[] = {
      {std::string("as is &"), "as is &"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {2.0, "2.0"},
      {0.1, "0.1"},
      {1e15, "1000000000000000.0"},
      {1e16, "1e+16"},
      {0.00001, "1e-05"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {std::nan(""), "nan"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(detail::parameterText(value), text) << text;
}

TEST(DumpHeaders, ShowTheRequestsFieldsAsTheyStand) {
  const APIRequest record(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt,
                          std::nullopt, std::nullopt, platform::toBytes("{}"));
  const auto request = detail::makeURLRequest(
      record, *platform::Url::parse("http://[::1]:8080/tracker/app"), std::nullopt,
      std::map<std::string, std::string>{
          {"Host", "o.test"}, {"Content-Length", "9"}, {"Transfer-Encoding", "chunked"}});
  ASSERT_TRUE(request.has_value());
  const std::string dump = detail::outgoingText(*request);
  for (const char* line :
       {"\nHost: [::1],o.test \n", "\nContent-Length: 2,9 \n", "\nTransfer-Encoding: chunked \n"}) {
    EXPECT_NE(dump.find(line), std::string::npos) << line << " in\n" << dump;
  }
}

TEST(DeviceInfoFormatting, EventDateInMillisecondsAndCoordinatesWithSixDecimals) {
  EXPECT_EQ(detail::eventDateText(1700000000.1236), "1700000000124");
  EXPECT_EQ(detail::eventDateText(0.0025), "3");  // 2.5 ms: half away from zero, not to even
  EXPECT_EQ(detail::eventDateText(-0.0025), "-3");
  EXPECT_EQ(detail::eventDateText(9.3e15), std::nullopt);  // beyond 64 bits of milliseconds
  EXPECT_EQ(detail::fixedSixDecimals(-0.0), "-0.000000");
  EXPECT_EQ(detail::fixedSixDecimals(0.0000006), "0.000001");
  EXPECT_EQ(detail::fixedSixDecimals(12345678.9), "12345678.900000");
}

}  // namespace
}  // namespace zelnora_core
