// Request URLs: base + the endpoint's raw path, placeholders filled, parameters as the query.
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "../../zelnora_core/src/RequestUrl.h"

namespace zelnora_core {
namespace {

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

}  // namespace
}  // namespace zelnora_core
