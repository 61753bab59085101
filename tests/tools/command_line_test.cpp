// zelnora-host's parsing: program arguments, splitting command lines, each command's arguments.
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CommandLine.h"

namespace zelnora_host {
namespace {

using Strings = std::vector<std::string>;
using zelnora_core::APIEndpoint;
using zelnora_core::HTTPMethod;

struct SplitCase {
  std::string line;
  std::optional<Strings> words;  // absent: the line is rejected
};

TEST(SplitCommandLineTest, SplitsAtBlanksAndHonoursQuotesAndEscapes) {
  const SplitCase cases[] = {
      {"state", Strings{"state"}},
      {"  initialize   key\tdebug=true  ", Strings{"initialize", "key", "debug=true"}},
      {"", Strings{}},
      {"   ", Strings{}},
      {R"(set-user-id "John Smith")", Strings{"set-user-id", "John Smith"}},
      {R"(send-report event="a b"c)", Strings{"send-report", "event=a bc"}},
      {R"(set-user-id "")", Strings{"set-user-id", ""}},
      {R"(x "" y)", Strings{"x", "", "y"}},
      {R"(set-pref h dictionary "{\"a\":\"b c\"}")",
       Strings{"set-pref", "h", "dictionary", R"({"a":"b c"})"}},
      {R"(a\\b)", Strings{R"(a\b)"}},
      {R"(a\nb)", Strings{R"(a\nb)"}},
      {R"(trailing\)", Strings{R"(trailing\)"}},
      {R"(say "unterminated)", std::nullopt},
      {R"(say \")", Strings{"say", "\""}},
  };
  for (const auto& c : cases) {
    auto parsed = splitCommandLine(c.line);
    if (!c.words) {
      EXPECT_FALSE(parsed) << c.line;
      EXPECT_FALSE(parsed.error.empty()) << c.line;
    } else {
      ASSERT_TRUE(parsed) << c.line << ": " << parsed.error;
      EXPECT_EQ(*parsed, *c.words) << c.line;
    }
  }
}

TEST(SplitKeyValueTest, SplitsAtTheFirstEqualsSign) {
  using Pair = std::pair<std::string, std::string>;
  EXPECT_EQ(splitKeyValue("a=b"), (Pair{"a", "b"}));
  EXPECT_EQ(splitKeyValue("a=b=c"), (Pair{"a", "b=c"}));
  EXPECT_EQ(splitKeyValue("event="), (Pair{"event", ""}));
  EXPECT_EQ(splitKeyValue("=x"), (Pair{"", "x"}));
  EXPECT_EQ(splitKeyValue("noequals"), std::nullopt);
}

TEST(HostArgumentsTest, BundleOptionOnlyBeforeTheCommands) {
  auto parsed = parseHostArguments({"zelnora-host", "--bundle", "/b", "state", "prefs"});
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->bundleDirectory, "/b");
  EXPECT_EQ(parsed->commandLines, (Strings{"state", "prefs"}));

  auto later = parseHostArguments({"zelnora-host", "state", "--bundle", "/b"});
  ASSERT_TRUE(later);
  EXPECT_EQ(later->bundleDirectory, std::nullopt);
  EXPECT_EQ(later->commandLines, (Strings{"state", "--bundle", "/b"}));

  auto none = parseHostArguments({"zelnora-host"});
  ASSERT_TRUE(none);
  EXPECT_TRUE(none->commandLines.empty());

  EXPECT_FALSE(parseHostArguments({"zelnora-host", "--bundle"}));
  EXPECT_FALSE(parseHostArguments({"zelnora-host", "--bundle", "a", "--bundle", "b"}));
}

TEST(InitializeArgumentsTest, KeyAndOptionalDebugFlag) {
  struct Case {
    Strings words;
    std::optional<InitializeArguments> expected;
  };
  const Case cases[] = {
      {{"key"}, InitializeArguments{"key", std::nullopt}},
      {{"key", "debug=true"}, InitializeArguments{"key", true}},
      {{"key", "debug=false"}, InitializeArguments{"key", false}},
      {{""}, InitializeArguments{"", std::nullopt}},
      {{}, std::nullopt},
      {{"key", "debug=yes"}, std::nullopt},
      {{"key", "debug"}, std::nullopt},
      {{"key", "debug=true", "extra"}, std::nullopt},
  };
  for (const auto& c : cases) {
    auto parsed = parseInitialize(c.words);
    EXPECT_EQ(parsed.value, c.expected) << testing::PrintToString(c.words);
    if (!c.expected) {
      EXPECT_NE(parsed.error.find("usage: initialize KEY"), std::string::npos);
    }
  }
}

TEST(WaitArgumentsTest, SecondsDefaultToTen) {
  using std::chrono::milliseconds;
  struct Case {
    Strings words;
    std::optional<milliseconds> expected;
  };
  const Case cases[] = {
      {{}, milliseconds(10000)}, {{"2"}, milliseconds(2000)}, {{"0.25"}, milliseconds(250)},
      {{"0"}, milliseconds(0)},  {{"-1"}, std::nullopt},      {{"abc"}, std::nullopt},
      {{"1e3"}, std::nullopt},   {{"1", "2"}, std::nullopt},  {{""}, std::nullopt},
      {{"nan"}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(parseWait(c.words).value, c.expected) << testing::PrintToString(c.words);
  }
}

TEST(CustomHeadersArgumentsTest, NameValueWordsMakeTheMap) {
  using Map = std::map<std::string, std::string>;
  EXPECT_EQ(parseCustomHeaders({}).value, Map{});
  EXPECT_EQ(parseCustomHeaders({"A=1", "B=x=y", "C="}).value,
            (Map{{"A", "1"}, {"B", "x=y"}, {"C", ""}}));
  EXPECT_EQ(parseCustomHeaders({"A=1", "A=2"}).value, (Map{{"A", "2"}}));
  EXPECT_FALSE(parseCustomHeaders({"A"}));
  EXPECT_FALSE(parseCustomHeaders({"=value"}));
}

TEST(SetPrefArgumentsTest, TypesAndDictionaryJson) {
  auto data = parseSetPref({"k", "data", "bytes here"});
  ASSERT_TRUE(data);
  EXPECT_EQ(data->type, PrefType::data);
  EXPECT_EQ(data->text, "bytes here");

  auto text = parseSetPref({"k", "string", ""});
  ASSERT_TRUE(text);
  EXPECT_EQ(text->type, PrefType::string);
  EXPECT_EQ(text->text, "");

  auto dictionary = parseSetPref({"k", "dictionary", R"({"a":"1","b/c":"x y"})"});
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->type, PrefType::dictionary);
  EXPECT_EQ(dictionary->dictionary,
            (std::map<std::string, std::string>{{"a", "1"}, {"b/c", "x y"}}));

  const Strings rejected[] = {
      {"k", "dictionary", R"({"a":1})"},  // values must be strings
      {"k", "dictionary", R"(["a"])"},    // an object, not an array
      {"k", "dictionary", "{"},           // not JSON
      {"k", "number", "1"},               // unknown type
      {"k", "string"},                    // missing value
      {"k", "string", "a", "b"},          // too many words
  };
  for (const auto& words : rejected) {
    auto parsed = parseSetPref(words);
    EXPECT_FALSE(parsed) << testing::PrintToString(words);
    EXPECT_NE(parsed.error.find("usage: set-pref"), std::string::npos);
  }
}

TEST(SendReportArgumentsTest, MissingWordIsAbsentAndEmptyValueIsEmpty) {
  struct Case {
    Strings words;
    std::optional<SendReportArguments> expected;
  };
  const Case cases[] = {
      {{}, SendReportArguments{}},
      {{"event="}, SendReportArguments{"", std::nullopt, std::nullopt}},
      {{"event=open", "campaign=c-1", "type=push"}, SendReportArguments{"open", "c-1", "push"}},
      {{"type=t", "event=e"}, SendReportArguments{"e", std::nullopt, "t"}},
      {{"campaign=a b/c"}, SendReportArguments{std::nullopt, "a b/c", std::nullopt}},
      {{"event"}, std::nullopt},
      {{"userKeyType=t"}, std::nullopt},
      {{"event=a", "event=b"}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(parseSendReport(c.words).value, c.expected) << testing::PrintToString(c.words);
  }
}

TEST(RequestArgumentsTest, EndpointAndMethodByCaseNameWithPathParametersAndBody) {
  auto campaign = parseRequest({"getCampaign", "get", "path.zoneId=42", "param.page=2"});
  ASSERT_TRUE(campaign) << campaign.error;
  EXPECT_EQ(campaign->endpoint, APIEndpoint::getCampaign);
  EXPECT_EQ(campaign->method, HTTPMethod::get);
  EXPECT_EQ(campaign->path, (std::map<std::string, std::string>{{"zoneId", "42"}}));
  EXPECT_EQ(campaign->parameters, (std::map<std::string, std::string>{{"page", "2"}}));
  EXPECT_EQ(campaign->body, std::nullopt);

  auto tracking = parseRequest({"sendAppTracking", "post", "body={\"events\":[]}"});
  ASSERT_TRUE(tracking);
  EXPECT_EQ(tracking->path, std::nullopt);
  EXPECT_EQ(tracking->parameters, std::nullopt);
  EXPECT_EQ(tracking->body, "{\"events\":[]}");

  auto emptyBody = parseRequest({"vqxCallback", "delete", "body="});
  ASSERT_TRUE(emptyBody);
  EXPECT_EQ(emptyBody->method, HTTPMethod::delete_);
  EXPECT_EQ(emptyBody->body, "");

  const Strings rejected[] = {
      {"sendAppTracking"},
      {"SendAppTracking", "post"},
      {"/tracker/app", "post"},
      {"sendAppTracking", "POST"},
      {"sendAppTracking", "delete_"},
      {"getCampaign", "get", "zoneId=42"},
      {"getCampaign", "get", "path.=42"},
      {"getCampaign", "get", "path.zoneId"},
      {"sendAppTracking", "post", "body=a", "body=b"},
  };
  for (const auto& words : rejected) {
    EXPECT_FALSE(parseRequest(words)) << testing::PrintToString(words);
  }
}

TEST(CaseNameTest, EveryEndpointAndMethodHasItsCaseName) {
  const std::pair<const char*, APIEndpoint> endpoints[] = {
      {"getCampaign", APIEndpoint::getCampaign},
      {"sendTracking", APIEndpoint::sendTracking},
      {"sendAppTracking", APIEndpoint::sendAppTracking},
      {"sendPollAnswers", APIEndpoint::sendPollAnswers},
      {"registerInVqx", APIEndpoint::registerInVqx},
      {"unregisterInVqx", APIEndpoint::unregisterInVqx},
      {"vqxCallback", APIEndpoint::vqxCallback},
  };
  for (const auto& [name, endpoint] : endpoints) EXPECT_EQ(endpointFromCaseName(name), endpoint);
  const std::pair<const char*, HTTPMethod> methods[] = {{"get", HTTPMethod::get},
                                                        {"post", HTTPMethod::post},
                                                        {"put", HTTPMethod::put},
                                                        {"delete", HTTPMethod::delete_}};
  for (const auto& [name, method] : methods) EXPECT_EQ(methodFromCaseName(name), method);
}

TEST(SmallCommandArgumentsTest, ArityIsChecked) {
  EXPECT_EQ(parseSetUserId({"u"}).value, "u");
  EXPECT_FALSE(parseSetUserId({}));
  EXPECT_FALSE(parseSetUserId({"a", "b"}));
  EXPECT_EQ(parseRemovePref({"k"}).value, "k");
  EXPECT_FALSE(parseRemovePref({}));
  auto current = parseDevice({});
  ASSERT_TRUE(current);
  EXPECT_EQ(*current, std::nullopt);
  auto named = parseDevice({"iPhone15,2"});
  ASSERT_TRUE(named);
  EXPECT_EQ(*named, "iPhone15,2");
  EXPECT_FALSE(parseDevice({"a", "b"}));
  EXPECT_TRUE(parseNoArguments({}));
  EXPECT_FALSE(parseNoArguments({"x"}));
}

}  // namespace
}  // namespace zelnora_host
