// APIService against real loopback servers through the real URL session: what goes on the wire,
// what the completion receives, and what is written to the console.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "EndToEnd.h"
#include "FreshProcess.h"
#include "KitInternals.h"
#include "support/LoopbackSocket.h"
#include "zelnora_core/ZAdsApiFactory.h"

namespace zelnora_core {
namespace {

using test_support::ReceivedRequest;
using testing::Completion;
using testing::CompletionRecorder;
using testing::LoopbackTest;

APIRequest campaign(const std::string& zone,
                    std::optional<std::map<std::string, ParameterValue>> parameters = {}) {
  return APIRequest(APIEndpoint::getCampaign, HTTPMethod::get, {{{"zoneId", zone}}},
                    std::move(parameters), std::nullopt, std::nullopt);
}

std::set<std::string> headerNames(const ReceivedRequest& request) {
  std::set<std::string> names;
  for (const auto& [name, value] : request.headers) names.insert(name);
  return names;
}

class ApiServiceEndToEnd : public LoopbackTest {
 protected:
  Completion sendAndWait(const APIRequest& request) {
    APIService::shared().request(request, recorder_.callback());
    EXPECT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)));
    EXPECT_TRUE(recorder_.waitFor(1));
    auto calls = recorder_.calls();
    EXPECT_EQ(calls.size(), 1u);
    return calls.empty() ? Completion{} : calls.front();
  }
  CompletionRecorder recorder_;
};

TEST_F(ApiServiceEndToEnd, PostSendsTheKitHeadersChannelCustomHeadersAndBodyOnly) {
  ZAPreferencesUtil::saveConfig({"nt", "nai", std::nullopt, "chan-9"});
  ZAPreferencesUtil::saveCustomHeaders({{"Accept", "text/plain"}, {"X-Custom", "v 1"}});
  const platform::Bytes body = platform::toBytes(R"({"events":[{"a":"b\/c"}]})");
  const APIRequest request(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt,
                           std::nullopt, {{{"X-Record", "never"}}}, body);

  Completion completion = sendAndWait(request);

  auto received = servers_.api.received();
  ASSERT_EQ(received.size(), 1u);
  const ReceivedRequest& got = received.front();
  EXPECT_EQ(got.method, "POST");
  EXPECT_EQ(got.target, "/tracker/app");
  EXPECT_EQ(got.body, platform::toString(body));
  EXPECT_EQ(headerNames(got),
            (std::set<std::string>{"Accept", "Content-Length", "Content-Type", "Host",
                                   "X-ZELNORA-CHANNEL-UUID", "X-Custom"}));
  EXPECT_EQ(got.values("Content-Type"),
            std::vector<std::string>{"application/json; charset=UTF-8"});
  EXPECT_EQ(got.values("Accept"), std::vector<std::string>{"*/*,text/plain"});
  EXPECT_EQ(got.values("Content-Length"), std::vector<std::string>{std::to_string(body.size())});
  EXPECT_EQ(got.values("X-ZELNORA-CHANNEL-UUID"), std::vector<std::string>{"chan-9"});
  EXPECT_EQ(got.values("X-Custom"), std::vector<std::string>{"v 1"});

  EXPECT_FALSE(completion.error.has_value());
  ASSERT_TRUE(completion.response.has_value());
  EXPECT_EQ(completion.response->statusCode, 200);
  EXPECT_EQ(completion.body, platform::toBytes(R"({"ok":true})"));
  EXPECT_NE(completion.thread, std::this_thread::get_id());
}

TEST_F(ApiServiceEndToEnd, GetCarriesQueryAndZeroLengthAndNoChannelWithoutOne) {
  for (const auto& stored : {std::optional<ZAConfig>(),
                             std::optional<ZAConfig>(ZAConfig{"nt", "nai", false, std::nullopt})}) {
    servers_.api.clear();
    if (stored) ZAPreferencesUtil::saveConfig(*stored);
    CompletionRecorder recorder;
    APIService::shared().request(
        campaign("7", {{{"q", std::string("a b&c")}, {"n", std::int64_t{2}}}}),
        recorder.callback());
    ASSERT_TRUE(recorder.waitFor(1));
    auto received = servers_.api.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "GET");
    EXPECT_EQ(received[0].target, "/campaign/v3/7?n=2&q=a%20b%26c");
    EXPECT_TRUE(received[0].values("X-ZELNORA-CHANNEL-UUID").empty());
    EXPECT_TRUE(received[0].body.empty());
  }
}

TEST_F(ApiServiceEndToEnd, EachExchangeWritesOneOutgoingAndOneIncomingDump) {
  sendAndWait(campaign("9", {{{"x", std::string("a b")}}}));
  const auto pieces = console_.pieces();
  ASSERT_EQ(pieces.size(), 6u);
  EXPECT_EQ(pieces[0], std::string(detail::kOutgoingBanner) + "\n");
  const std::string url = servers_.api.base() + "/campaign/v3/9?x=a%20b";
  EXPECT_EQ(pieces[1].substr(0, pieces[1].find("Content-Type")),
            url + " \n\n\nGET /campaign/v3/9?x=a b HTTP/1.1 \n\nHOST: 127.0.0.1\n");
  EXPECT_EQ(pieces[2], std::string(detail::kEndBanner) + "\n");
  EXPECT_EQ(pieces[3], std::string(detail::kIncomingBanner) + "\n");
  EXPECT_EQ(pieces[4].substr(0, pieces[4].find("Host: ")),
            url + "\n\nHTTP 200 /campaign/v3/9?x=a b\n");
  EXPECT_NE(pieces[4].find("\n{\"ok\":true}\n\n"), std::string::npos);
  EXPECT_EQ(pieces[5], std::string(detail::kEndBanner) + "\n");
}

TEST_F(ApiServiceEndToEnd, NoContentWithEmptyBodyIsASuccess) {
  Completion completion = sendAndWait(campaign("status/204"));
  EXPECT_FALSE(completion.error.has_value());
  ASSERT_TRUE(completion.response.has_value());
  EXPECT_EQ(completion.response->statusCode, 204);
  EXPECT_EQ(completion.body, platform::Bytes{});
}

TEST_F(ApiServiceEndToEnd, ErrorStatusGivesOnlyTheStatusCodeErrorAndDumpsTheBody) {
  for (int status : {404, 500}) {
    console_.clear();
    CompletionRecorder recorder;
    APIService::shared().request(campaign("status/" + std::to_string(status)), recorder.callback());
    ASSERT_TRUE(recorder.waitFor(1));
    ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)));
    auto calls = recorder.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].error, (platform::Error{"StatusCode", status, std::nullopt}));
    EXPECT_FALSE(calls[0].body.has_value());
    EXPECT_FALSE(calls[0].response.has_value());
    EXPECT_EQ(piecesContaining("HTTP " + std::to_string(status) + " /campaign/v3/status/"), 1u);
    EXPECT_EQ(piecesContaining(status == 404 ? "\n{\"error\":\"not found\"}\n" : "\nboom\n"), 1u);
  }
}

TEST_F(ApiServiceEndToEnd, ResetConnectionGivesOneTransportErrorCompletion) {
  const int before = servers_.gateway.connections();
  const APIRequest request(APIEndpoint::vqxCallback, HTTPMethod::post, std::nullopt, std::nullopt,
                           std::nullopt, platform::toBytes("{}"));
  Completion completion = sendAndWait(request);
  EXPECT_GE(servers_.gateway.connections(), before + 1);
  ASSERT_TRUE(completion.error.has_value());
  EXPECT_EQ(completion.error->domain, platform::kURLErrorDomain);
  EXPECT_FALSE(completion.body.has_value());
  EXPECT_FALSE(completion.response.has_value());
  EXPECT_EQ(piecesContaining("\nError: " + completion.error->localizedDescription() + "\n"), 1u);
}

TEST_F(ApiServiceEndToEnd, AnswerCutShortIsATransportError) {
  servers_.api.answerEveryPathWith({200, "{\"partial\":", true});
  Completion completion = sendAndWait(campaign("1"));
  ASSERT_TRUE(completion.error.has_value());
  EXPECT_EQ(completion.error->domain, platform::kURLErrorDomain);
  EXPECT_FALSE(completion.response.has_value());
}

TEST_F(ApiServiceEndToEnd, UnformableUrlPrintsInvalidUrlSendsNothingAndCompletesOnce) {
  APIService::shared().request(campaign("a b"), recorder_.callback());
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)));
  auto calls = recorder_.calls();
  ASSERT_EQ(calls.size(), 1u) << "the session's idle wait covers the completion";
  EXPECT_EQ(calls[0].error, detail::invalidUrlError());
  EXPECT_EQ(calls[0].error->domain, "NSURLErrorDomain");
  EXPECT_EQ(calls[0].error->code, -1000);
  EXPECT_FALSE(calls[0].body.has_value());
  EXPECT_FALSE(calls[0].response.has_value());
  EXPECT_EQ(console_.pieces(), std::vector<std::string>{"Invalid URL\n"});
  EXPECT_TRUE(servers_.api.received().empty());

  CompletionRecorder ordinary;
  APIService::shared().request(campaign("1"), ordinary.callback());
  ASSERT_TRUE(ordinary.waitFor(1));
  EXPECT_EQ(calls[0].thread, ordinary.calls()[0].thread) << "both on the session's queue";
  EXPECT_NE(calls[0].thread, std::this_thread::get_id());
}

TEST_F(ApiServiceEndToEnd, InjectedCustomHeaderNeverReachesTheWireOrTheDump) {
  ZAPreferencesUtil::saveCustomHeaders(
      {{"X-Evil", "1\r\nX-Injected: yes"}, {"X-Fine", "ok"}, {"Content-Length", "999"}});
  sendAndWait(campaign("3"));
  auto received = servers_.api.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].values("X-Injected").empty());
  EXPECT_TRUE(received[0].values("X-Evil").empty());
  EXPECT_EQ(received[0].values("X-Fine"), std::vector<std::string>{"ok"});
  EXPECT_EQ(piecesContaining("X-Injected"), 0u);
  EXPECT_EQ(piecesContaining("X-Fine: ok \n"), 1u);
}

TEST_F(ApiServiceEndToEnd, EmptyCompletionIsToleratedOnEveryPath) {
  APIService::shared().request(campaign("5"), nullptr);
  APIService::shared().request(campaign("status/500"), nullptr);
  ZAdsApiFactory().sendAppTracking(campaign("6"), nullptr);
  APIService::shared().request(campaign("a b"), recorder_.callback());  // the invalid-URL thread
  APIService::shared().request(campaign("a b"), nullptr);
  ASSERT_TRUE(recorder_.waitFor(1));
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)));
  EXPECT_EQ(servers_.api.received().size(), 3u);
}

// Base URLs other than the shared servers' need a process of their own.
void expectOneCompletionInFreshProcess(const std::string& apiBase, bool expectInvalidUrl) {
  testing::ChildChecks checks;
  platform::testing::FakeConsole console;
  platform::testing::InMemoryUserDefaults store;
  platform::testing::ScopedServices guard([&](auto& s) {
    s.console = &console;
    s.userDefaults = &store;
  });
  if (!apiBase.empty()) ZAPreferencesUtil::saveApiConfig({"", apiBase, apiBase});
  CompletionRecorder recorder;
  APIService::shared().request(campaign("1"), recorder.callback());
  checks.check(recorder.waitFor(1), "a completion arrived");
  checks.check(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)), "idle");
  auto calls = recorder.calls();
  checks.equal(calls.size(), 1u, "completions");
  if (!calls.empty()) {
    checks.check(calls[0].error.has_value() && !calls[0].body && !calls[0].response, "error only");
    if (calls[0].error) {
      checks.equal(calls[0].error->domain, "NSURLErrorDomain", "domain");
      if (expectInvalidUrl) checks.equal(calls[0].error->code, -1000, "code");
    }
  }
  const auto pieces = console.pieces();
  if (expectInvalidUrl) {
    checks.equal(pieces.size(), 1u, "pieces");
    checks.check(!pieces.empty() && pieces[0] == "Invalid URL\n", "Invalid URL printed");
  } else {
    checks.equal(pieces.size(), 6u, "two dumps of three pieces");
  }
  checks.finish();
}

TEST(ApiServiceFreshProcess, ConnectionRefusedCompletesOnceWithTheTransportError) {
  const std::string base = "http://127.0.0.1:" + std::to_string(test_support::refusedPort());
  ZELNORA_EXPECT_IN_FRESH_PROCESS(expectOneCompletionInFreshProcess(base, false));
}

TEST(ApiServiceFreshProcess, NoStoredApiConfigurationIsAnInvalidUrl) {
  ZELNORA_EXPECT_IN_FRESH_PROCESS(expectOneCompletionInFreshProcess("", true));
}

TEST(ApiServiceFreshProcess, BaseWithoutHostSendsNothing) {
  ZELNORA_EXPECT_IN_FRESH_PROCESS(expectOneCompletionInFreshProcess("file:///tmp", true));
}

}  // namespace
}  // namespace zelnora_core
