// The request the API service builds from a record and how it turns a finished exchange into its
// completion's arguments.
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "../../zelnora_core/src/APIServiceDetail.h"

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

}  // namespace
}  // namespace zelnora_core
