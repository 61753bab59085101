// Endpoint and method vocabulary, URL forming from base + raw path + placeholders + parameters,
// and the once-per-process reading of the base URLs.
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "FreshProcess.h"
#include "KitInternals.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/APIRequest.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core {
namespace {

using Placeholders = std::optional<std::map<std::string, std::string>>;
using Parameters = std::optional<std::map<std::string, ParameterValue>>;

TEST(HTTPMethodLookup, RawValuesRoundTripAndOnlyExactTextMatches) {
  const std::map<std::string, HTTPMethod> expected{{"GET", HTTPMethod::get},
                                                   {"POST", HTTPMethod::post},
                                                   {"PUT", HTTPMethod::put},
                                                   {"DELETE", HTTPMethod::delete_}};
  for (const auto& [raw, method] : expected) {
    EXPECT_EQ(rawValue(method), raw);
    EXPECT_EQ(httpMethodFromRawValue(raw), method) << raw;
  }
  for (const char* other : {"get", "Get", "GET ", " POST", "PATCH", "", "delete"}) {
    EXPECT_EQ(httpMethodFromRawValue(other), std::nullopt) << other;
  }
}

TEST(APIEndpointLookup, RawPathsRoundTripAndOnlyExactTextMatches) {
  const std::map<std::string, APIEndpoint> expected{
      {"/campaign/v3/{zoneId}", APIEndpoint::getCampaign},
      {"/tracker", APIEndpoint::sendTracking},
      {"/tracker/app", APIEndpoint::sendAppTracking},
      {"/tracker/quiz", APIEndpoint::sendPollAnswers},
      {"/v2/register", APIEndpoint::registerInVqx},
      {"/v1/unregister", APIEndpoint::unregisterInVqx},
      {"/v1/device/callback", APIEndpoint::vqxCallback}};
  for (const auto& [raw, endpoint] : expected) {
    EXPECT_EQ(rawValue(endpoint), raw);
    EXPECT_EQ(apiEndpointFromRawValue(raw), endpoint) << raw;
  }
  for (const char* other :
       {"/Tracker/app", "/tracker/app/", "tracker/app", "/campaign/v3/42", ""}) {
    EXPECT_EQ(apiEndpointFromRawValue(other), std::nullopt) << other;
  }
}

TEST(APIEndpointBase, OnlyTheThreeGatewayPathsUseTheGatewayBase) {
  using detail::BaseKind;
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::registerInVqx), BaseKind::gateway);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::unregisterInVqx), BaseKind::gateway);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::vqxCallback), BaseKind::gateway);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::getCampaign), BaseKind::api);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::sendTracking), BaseKind::api);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::sendAppTracking), BaseKind::api);
  EXPECT_EQ(detail::baseKindOf(APIEndpoint::sendPollAnswers), BaseKind::api);
}

struct UrlCase {
  const char* name;
  std::string text;  // base + raw path
  Placeholders placeholders;
  Parameters parameters;
  std::optional<std::string> expected;
};

class RequestUrlForming : public ::testing::TestWithParam<UrlCase> {};

TEST_P(RequestUrlForming, GivesTheExpectedAbsoluteUrl) {
  const UrlCase& c = GetParam();
  std::optional<platform::Url> url = detail::formRequestUrl(c.text, c.placeholders, c.parameters);
  if (!c.expected) {
    EXPECT_EQ(url, std::nullopt) << url->absoluteString();
    return;
  }
  ASSERT_TRUE(url.has_value());
  EXPECT_EQ(url->absoluteString(), *c.expected);
}

const std::string kCampaign = "http://api.test/campaign/v3/{zoneId}";

INSTANTIATE_TEST_SUITE_P(
    Table, RequestUrlForming,
    ::testing::Values(
        UrlCase{
            "BaseAndPath", "http://api.test/tracker/app", {}, {}, "http://api.test/tracker/app"},
        UrlCase{"BaseWithTrailingSlashDoublesIt",
                "http://api.test//tracker/app",
                {},
                {},
                "http://api.test//tracker/app"},
        UrlCase{"BaseWithPathKeepsIt",
                "http://api.test/v9/tracker/app",
                {},
                {},
                "http://api.test/v9/tracker/app"},
        UrlCase{"PlaceholderFilled",
                kCampaign,
                {{{"zoneId", "42"}}},
                {},
                "http://api.test/campaign/v3/42"},
        UrlCase{"ExtraPlaceholderEntryChangesNothing",
                kCampaign,
                {{{"zoneId", "42"}, {"other", "x"}}},
                {},
                "http://api.test/campaign/v3/42"},
        UrlCase{"MissingPlaceholderKeepsBraces",
                kCampaign,
                {{{"other", "x"}}},
                {},
                "http://api.test/campaign/v3/{zoneId}"},
        UrlCase{"SlashInValueAddsASegment",
                kCampaign,
                {{{"zoneId", "a/b"}}},
                {},
                "http://api.test/campaign/v3/a/b"},
        UrlCase{"EveryOccurrenceReplaced",
                "http://api.test/{k}/{k}",
                {{{"k", "v"}}},
                {},
                "http://api.test/v/v"},
        UrlCase{"ParametersInMapOrder",
                "http://api.test/tracker",
                {},
                {{{"page", std::int64_t{2}}, {"active", true}}},
                "http://api.test/tracker?active=true&page=2"},
        UrlCase{"EmptyParametersEndInQuestionMark",
                "http://api.test/tracker",
                {},
                {std::map<std::string, ParameterValue>{}},
                "http://api.test/tracker?"},
        UrlCase{"ParametersReplaceAQueryInTheText",
                "http://api.test/{q}",
                {{{"q", "x?old=1"}}},
                {{{"new", std::string("2")}}},
                "http://api.test/x?new=2"},
        UrlCase{"ParameterTextIsPercentEncoded",
                "http://api.test/tracker",
                {},
                {{{"q", std::string("a b&c=d")}, {"f", 1.5}, {"off", false}}},
                "http://api.test/tracker?f=1.5&off=false&q=a%20b%26c%3Dd"},
        UrlCase{"PortKept",
                "http://127.0.0.1:8080/tracker",
                {},
                {{{"n", std::int64_t{-3}}}},
                "http://127.0.0.1:8080/tracker?n=-3"},
        UrlCase{"NoBaseIsNoUrl", "/tracker/app", {}, {}, std::nullopt},
        UrlCase{"NoBaseWithParametersIsNoUrl", "/tracker/app", {}, {{{"a", true}}}, std::nullopt},
        UrlCase{"SpaceFromAValueIsNoUrl",
                kCampaign,
                {{{"zoneId", "a b"}}},
                {{{"a", true}}},
                std::nullopt},
        UrlCase{"MalformedBaseIsNoUrl", "http://api.test:99999/tracker", {}, {}, std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ParameterText, WritesEachKindInItsTextualForm) {
  const std::vector<std::pair<ParameterValue, std::string>> cases{
      {std::string("as is &"), "as is &"},
      {std::int64_t{0}, "0"},
      {std::int64_t{-7}, "-7"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {true, "true"},
      {false, "false"},
      {1.5, "1.5"},
      {2.0, "2.0"},
      {-2.5, "-2.5"},
      {0.1, "0.1"},
      {0.0, "0.0"},
      {123456.789, "123456.789"},
      {1e15, "1000000000000000.0"},
      {1e16, "1e+16"},
      {0.0001, "0.0001"},
      {0.00001, "1e-05"},
      {1.5e-7, "1.5e-07"},
      {1e100, "1e+100"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
      {std::nan(""), "nan"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(detail::parameterText(value), text);
}

TEST(PlaceholderSubstitution, InsertsValuesWithoutEncodingAndLeavesUnknownOnes) {
  EXPECT_EQ(detail::substitutePlaceholders("/a/{x}/{y}", {{"x", "1 %2F"}}), "/a/1 %2F/{y}");
  EXPECT_EQ(detail::substitutePlaceholders("/{x}{x}", {{"x", "{x}"}}), "/{x}{x}");
  EXPECT_EQ(detail::substitutePlaceholders("/{x}", {}), "/{x}");
}

// The base URLs are read from the store once per process: these run in a fresh process.
TEST(BaseUrlCache, AbsentUntilAConfigurationIsStoredThenFixedForTheProcess) {
  ZELNORA_EXPECT_IN_FRESH_PROCESS({
    testing::ChildChecks checks;
    platform::testing::InMemoryUserDefaults store;
    platform::testing::ScopedServices guard([&](auto& s) { s.userDefaults = &store; });
    const APIRequest request(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt,
                             std::nullopt, std::nullopt, std::nullopt);
    checks.equal(urlString(APIEndpoint::sendAppTracking), "/tracker/app", "no config: text");
    checks.check(!request.url().has_value(), "no config: no URL");

    ZAPreferencesUtil::saveApiConfig({"http://c/{key}", "http://api.first", "http://gw.first/g"});
    checks.equal(urlString(APIEndpoint::sendAppTracking), "http://api.first/tracker/app", "api");
    checks.equal(urlString(APIEndpoint::vqxCallback), "http://gw.first/g/v1/device/callback",
                 "gateway");
    checks.equal(request.url() ? request.url()->absoluteString() : "-",
                 "http://api.first/tracker/app", "url");

    ZAPreferencesUtil::saveApiConfig({"http://c/{key}", "http://api.second", "http://gw.second"});
    checks.equal(urlString(APIEndpoint::sendPollAnswers), "http://api.first/tracker/quiz",
                 "api after a new config");
    checks.equal(urlString(APIEndpoint::registerInVqx), "http://gw.first/g/v2/register",
                 "gateway after a new config");
    checks.finish();
  });
}

TEST(BaseUrlCache, EachBaseIsReadOnItsOwnFirstUse) {
  ZELNORA_EXPECT_IN_FRESH_PROCESS({
    testing::ChildChecks checks;
    platform::testing::InMemoryUserDefaults store;
    platform::testing::ScopedServices guard([&](auto& s) { s.userDefaults = &store; });
    ZAPreferencesUtil::saveApiConfig({"", "http://api.first", "http://gw.first"});
    checks.equal(urlString(APIEndpoint::sendTracking), "http://api.first/tracker", "api");
    ZAPreferencesUtil::saveApiConfig({"", "http://api.second", "http://gw.second"});
    checks.equal(urlString(APIEndpoint::unregisterInVqx), "http://gw.second/v1/unregister",
                 "gateway read later");
    checks.equal(urlString(APIEndpoint::sendTracking), "http://api.first/tracker", "api kept");
    checks.finish();
  });
}

}  // namespace
}  // namespace zelnora_core
