// The Linux URL session against loopback servers, as the phone's session behaves: what goes on the
// wire, what comes back, how exchanges fail, that every task completes exactly once off the
// caller's thread, that a request is sent at most once, how redirects change method and body, that
// the time-out measures silence, the memory guards, and cookies that persist.
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Bundle.h"
#include "platform/UrlSession.h"
#include "platform/src/LinuxProviders.h"
#include "platform/src/ResendRule.h"
#include "platform/src/SessionFields.h"
#include "support/ChildProcess.h"
#include "support/RawSocketServer.h"
#include "support/RecordingServer.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test_support::RawSocketServer;
using Connection = RawSocketServer::Connection;
using Values = std::vector<std::string>;

URLSession& session() { return linux_provider::urlSession(); }

URLRequest requestFor(const std::string& text, std::string method = "GET",
                      std::optional<std::string> body = std::nullopt) {
  URLRequest request(Url::parse(text).value_or(*Url::parse("http://invalid.invalid/")));
  request.httpMethod = std::move(method);
  if (body) request.httpBody = toBytes(*body);
  return request;
}

struct Outcome {
  int calls = 0;
  std::optional<Bytes> body;
  std::optional<URLResponse> response;
  std::optional<Error> error;
};

// Sends one request and waits for the session to go idle.
Outcome send(URLRequest request) {
  auto outcome = std::make_shared<Outcome>();
  session().dataTask(std::move(request), [outcome](auto body, auto response, auto error) {
    *outcome = {outcome->calls + 1, std::move(body), std::move(response), std::move(error)};
  });
  EXPECT_TRUE(session().waitUntilIdle(120s));
  return *outcome;
}

// Bytes that differ from their neighbours, so that a lost, doubled or reordered piece shows.
std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

void echo(const httplib::Request& request, httplib::Response& response) {
  response.set_content("echo:" + request.get_param_value("i"), "text/plain");
}

TEST(UrlSessionRequest, ServerReceivesMethodTargetHeadersAndExactBody) {
  // clang-format off
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"GET", std::nullopt}, {"POST", "{\"event\":\"open\",\"bin\":\"\0\xFF\"}"s},
      {"POST", std::nullopt}, {"PUT", "{\"user\":\"u\"}"}, {"DELETE", "{\"id\":3}"},
      {"OPTIONS", std::nullopt}, {"POST", pattern(3 << 20)}};  // curl would "Expect: 100-continue"
  // clang-format on
  for (const auto& [method, body] : cases) {
    SCOPED_TRACE(method + " with body of " + std::to_string(body.value_or("").size()));
    test_support::RecordingServer server(echo, false);
    auto request = requestFor(server.url("/echo/a%20b?i=7&q=x%2By"), method);
    request.addValue("application/json; charset=UTF-8", "Content-Type");
    request.addValue("*/*", "Accept");
    request.addValue("text/plain", "accept");
    request.addValue("3", "Content-Length");
    request.addValue("c7a1", "X-ZELNORA-CHANNEL-UUID");
    if (body) request.httpBody = toBytes(*body);
    const auto outcome = send(std::move(request));
    ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
    EXPECT_EQ(outcome.response->statusCode, 200);
    EXPECT_EQ(toString(*outcome.body), "echo:7");
    ASSERT_EQ(server.received().size(), 1u);
    const auto seen = server.received().front();
    EXPECT_EQ(seen.method + " " + seen.path + " " + seen.params.find("q")->second,
              method + " /echo/a b x+y");
    EXPECT_TRUE(seen.body == body.value_or(""));
    EXPECT_EQ(seen.values("Content-Type"), std::vector{"application/json; charset=UTF-8"s});
    EXPECT_EQ(seen.values("Accept"), std::vector{"*/*,text/plain"s});
    EXPECT_EQ(seen.values("X-ZELNORA-CHANNEL-UUID"), std::vector{"c7a1"s});
    EXPECT_TRUE(seen.values("Expect").empty());
    const auto length = seen.values("Content-Length");  // the transport's own, never the "3"
    EXPECT_TRUE(body ? length == std::vector{std::to_string(body->size())}
                     : length.empty() || length == std::vector{"0"s});
  }
}

TEST(UrlSessionRequest, GetCarriesItsBodyAndNoFieldInjectsAHeader) {
  std::string bodySeen;
  RawSocketServer server([&](Connection& connection) {
    connection.readRequestHead();
    bodySeen = connection.readExactly(7);
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
  });
  auto request = requestFor(server.url("/search"));
  request.httpBody = toBytes("{\"q\":1}");
  // clang-format off
  for (const auto& [value, field] : std::vector<std::pair<std::string, std::string>>{
      {"ok", "X-Good"}, {"", "X-Empty"}, {"a\r\nX-Injected: crlf", "X-Bad-1"},
      {"a\nX-Injected: lf", "X-Bad-2"}, {"a\rX-Injected: cr", "X-Bad-3"},
      {"a\0X-Injected: nul"s, "X-Bad-4"}, {"v", "X-Injected: name\r\nX-Bad-5"}, {"v", "Bad Name"},
      {"v", "Bad:Name"}, {"v", ""}}) {
    // clang-format on
    request.addValue(value, field);
  }
  const auto outcome = send(std::move(request));
  ASSERT_FALSE(outcome.error);
  EXPECT_EQ(toString(*outcome.body), "ok");
  EXPECT_EQ(bodySeen, "{\"q\":1}");  // written by the server's thread before it answered
  const std::string head = server.requestHeads().at(0);
  EXPECT_EQ(head.substr(0, 16), "GET /search HTTP");
  for (const char* sent : {"\r\nContent-Length: 7\r\n", "\r\nX-Good: ok\r\n", "\r\nX-Empty:\r\n"}) {
    EXPECT_NE(head.find(sent), std::string::npos) << sent << " missing from\n" << head;
  }
  for (const char* leaked : {"X-Injected", "X-Bad", "Bad Name", "Bad:Name", "\r\n: v"}) {
    EXPECT_EQ(head.find(leaked), std::string::npos) << leaked << " in\n" << head;
  }
}

TEST(UrlSessionResponse, StatusHeadersAndWholeBodyArriveAsSent) {
  const std::string large = pattern(1 << 20);
  std::string chunked;
  for (std::size_t at = 0; at < large.size(); at += 65536) {
    chunked += "10000\r\n" + large.substr(at, 65536) + "\r\n";
  }
  const std::map<std::string, std::string> answers = {
      {"/chunked", "200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked + "0\r\n\r\n"},
      {"/head", "200 OK\r\nContent-Length: 5\r\n\r\n"},
      {"/empty", "204 No Content\r\n\r\n"},
      {"/", "503 Unavailable\r\nZ-Last: 1\r\nA-First:  2 \r\nContent-Length: 4\r\n\r\nbody"}};
  RawSocketServer server([&](Connection& connection) {
    const std::string head = connection.readRequestHead();
    const auto path = head.substr(head.find(' ') + 1, head.find(" HTTP") - head.find(' ') - 1);
    std::string answer = answers.at(path);
    answer.insert(answer.find("\r\n\r\n"), "\r\nConnection: close");
    connection.send("HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\nHTTP/1.1 " + answer);
  });
  // clang-format off
  for (const auto& [path, method, status, body] : std::vector<std::tuple<std::string, std::string, int, std::string>>{
      {"/chunked", "GET", 200, large}, {"/head", "HEAD", 200, ""}, {"/empty", "GET", 204, ""},
      {"/", "GET", 503, "body"}}) {
    // clang-format on
    const auto outcome = send(requestFor(server.url(path), method));
    ASSERT_FALSE(outcome.error) << path << ": " << outcome.error->localizedDescription();
    EXPECT_EQ(outcome.response->statusCode, status) << path;
    EXPECT_EQ(outcome.response->url, server.url(path));
    ASSERT_TRUE(outcome.body) << path << ": an answer always has a body, maybe empty";
    EXPECT_TRUE(toString(*outcome.body) == body) << path;
  }
  const std::vector<std::pair<std::string, std::string>> headers{
      {"Z-Last", "1"}, {"A-First", "2"}, {"Content-Length", "4"}, {"Connection", "close"}};
  EXPECT_EQ(send(requestFor(server.url("/"))).response->headerFields, headers)
      << "in arrival order, interim ones left out";
  EXPECT_EQ(send(requestFor(server.url(""))).response->url, server.url("")) << "no '/' added";
}

// The peer's part in each row: "reset", "stall", "tls" (answers a ClientHello with plain HTTP),
// or the bytes it answers the request with.
TEST(UrlSessionFailure, EachEndsInOneCompletionWithTheTransportError) {
  // clang-format off
  const std::tuple<const char*, std::string, std::int64_t> cases[] = {
      {"http", "reset", kURLErrorNetworkConnectionLost}, {"http", "", kURLErrorNetworkConnectionLost},
      {"http", "garbage\r\n\r\n", kURLErrorBadServerResponse}, {"http", "stall", kURLErrorTimedOut},
      {"http", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly ten..", kURLErrorNetworkConnectionLost},
      {"https", "tls", kURLErrorSecureConnectionFailed}, {"ftp", "", kURLErrorUnsupportedURL},
      {"http", "bad method", kURLErrorUnknown}, {"http", "refused", kURLErrorCannotConnectToHost}};
  // clang-format on
  for (const auto& [scheme, peer, code] : cases) {
    SCOPED_TRACE(peer);
    RawSocketServer server([peer = peer](Connection& connection) {
      if (peer == "tls") {
        connection.readExactly(5);
        return connection.send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
      }
      connection.readRequestHead();
      if (peer == "reset") return connection.reset();
      if (peer == "stall") return connection.waitForRelease();
      connection.send(peer);
    });
    const int port = peer == "refused" ? test_support::refusedPort() : server.port();
    auto request = requestFor(scheme + "://127.0.0.1:"s + std::to_string(port) + "/");
    if (peer == "bad method") request.httpMethod = "GET /other HTTP/1.1\r\nX-Injected: 1\r\nX:";
    // Only the stalling peer should meet the time-out; the others keep a margin for a loaded
    // machine under sanitizers, where half a second once turned a reset into a time-out.
    request.timeoutInterval = peer == "stall" ? 0.5s : 10s;
    const auto outcome = send(std::move(request));
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.body || outcome.response);
    EXPECT_EQ(outcome.error.value_or(Error{}).domain, "NSURLErrorDomain");
    EXPECT_EQ(outcome.error.value_or(Error{}).code, code);
    EXPECT_FALSE(outcome.error.value_or(Error{}).localizedDescription().empty());
    EXPECT_TRUE(peer != "bad method" || server.requestHeads().empty()) << "nothing may be sent";
  }
}

// A completion that throws must not end the worker and with it every later exchange.
TEST(UrlSessionCompletion, TheWorkerOutlivesAThrowingCompletion) {
  test_support::RecordingServer server(echo, false);
  session().dataTask(requestFor(server.url("/")), [](auto...) { throw std::runtime_error("bug"); });
  EXPECT_EQ(toString(send(requestFor(server.url("/?i=2"))).body.value_or(Bytes{})), "echo:2");
}

TEST(UrlSessionConcurrency, ConcurrentTasksCompleteExactlyOnceOffCallerThreads) {
  constexpr int kThreads = 4, kTasksPerThread = 50;
  test_support::RecordingServer server(echo, false);
  std::vector<std::atomic<int>> calls(kThreads * kTasksPerThread);
  std::atomic<int> onCallerThread{0}, wrongBody{0};
  std::vector<std::thread> callers;
  for (int t = 0; t < kThreads; ++t) {
    callers.emplace_back([&, t] {
      const auto caller = std::this_thread::get_id();
      for (int i = t * kTasksPerThread; i < (t + 1) * kTasksPerThread; ++i) {
        auto request = requestFor(server.url("/?i=" + std::to_string(i)), i % 2 ? "POST" : "GET");
        session().dataTask(std::move(request), [&, i, caller](auto body, auto, auto error) {
          calls[i].fetch_add(1);
          if (std::this_thread::get_id() == caller) onCallerThread.fetch_add(1);
          if (error || toString(*body) != "echo:" + std::to_string(i)) wrongBody.fetch_add(1);
        });
      }
    });
  }
  for (auto& caller : callers) caller.join();
  ASSERT_TRUE(session().waitUntilIdle(60s));
  for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].load(), 1) << "task " << i;
  EXPECT_EQ(onCallerThread.load() + wrongBody.load(), 0);
  EXPECT_EQ(server.received().size(), calls.size());
}

// A kept-alive connection that dies under a request: an idempotent one goes again, once, on a
// fresh connection; a POST the server may have acted on is never sent twice.
TEST(SessionWireTest, RequestOnADeadKeptAliveConnectionGoesAgainOnlyWhenIdempotent) {
  struct Case {
    const char* method;
    bool everyLaterRequestDies;
    std::int64_t error;
    int requests;
  };
  const Case cases[] = {{"GET", false, 0, 3},
                        {"DELETE", false, 0, 3},
                        {"POST", false, kURLErrorNetworkConnectionLost, 2},
                        {"GET", true, kURLErrorNetworkConnectionLost, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.method) + (c.everyLaterRequestDies ? " (resend dies too)" : ""));
    std::atomic<int> connections{0}, requests{0};
    RawSocketServer server([&](RawSocketServer::Connection& connection) {
      const bool first = connections++ == 0;
      for (int answered = 0;; ++answered) {
        const std::string head = connection.readRequestHead();
        if (head.empty()) return;
        ++requests;
        connection.readExactly(head.find("Content-Length: 13") == std::string::npos ? 0 : 13);
        if ((first && answered == 1) || (!first && c.everyLaterRequestDies)) return;
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
      }
    });
    ASSERT_FALSE(send(requestFor(server.url("/first"))).error);
    const Outcome second = send(requestFor(server.url("/report"), c.method, "{\"events\":[]}"));
    EXPECT_EQ(second.error.value_or(Error{}).code, c.error);
    if (c.error == 0) {
      EXPECT_EQ(second.body, toBytes("ok"));
    }
    if (c.requests == 2) {
      EXPECT_EQ(second.error->localizedDescription(), "The network connection was lost.");
    }
    EXPECT_EQ(requests.load(), c.requests);
  }
}

TEST(SessionWireTest, RedirectFollowsTheStatusRulesAndFramingIsTheTransports) {
  test_support::RecordingServer server(
      [](const httplib::Request& request, auto& response) {
        if (request.path.starts_with("/go/"))
          return response.set_redirect("/landed", std::stoi(request.path.substr(4)));
        response.set_content("landed", "text/plain");
      },
      false);
  const struct {
    const char* method;
    int status;
    const char* followUp;
  } cases[] = {{"POST", 303, "GET"}, {"POST", 302, "GET"}, {"POST", 301, "GET"},
               {"PUT", 303, "GET"},  {"PUT", 302, "PUT"},  {"POST", 307, "POST"},
               {"PUT", 308, "PUT"}};
  const std::string body = "{\"n\":1}";
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.method) + " " + std::to_string(c.status));
    server.clear();
    auto request = requestFor(server.url("/go/" + std::to_string(c.status)), c.method, body);
    for (const auto& [name, value] : {std::pair{"Content-Type", "application/json"},
                                      {"Content-Length", "7"},
                                      {"Host", "evil.example"},
                                      {"Transfer-Encoding", "chunked"},
                                      {"X-Keep", "yes"}}) {
      request.addValue(value, name);
    }
    request.timeoutInterval = 5s;
    const Outcome outcome = send(std::move(request));
    ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
    EXPECT_EQ(outcome.response->url, server.url("/landed"));
    const auto received = server.received();
    ASSERT_EQ(received.size(), 2u);
    const bool keepsBody = std::string(c.followUp) != "GET";
    EXPECT_EQ(received[1].method, c.followUp);
    EXPECT_EQ(received[1].body, keepsBody ? body : "");
    EXPECT_EQ(received[1].values("Content-Length"), keepsBody ? Values{"7"} : Values{});
    EXPECT_EQ(received[1].values("Content-Type").size(), keepsBody ? 1u : 0u);
    for (const auto& hop : received) {
      EXPECT_EQ(hop.values("Host"), Values{host});
      EXPECT_EQ(hop.values("Transfer-Encoding"), Values{});
      EXPECT_EQ(hop.values("X-Keep"), Values{"yes"});
    }
  }
}

TEST(SessionWireTest, SlowButSteadyAnswerOutlastsTheTimeOut) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 12\r\nConnection: close\r\n\r\n");
    for (int i = 0; i < 12; ++i) {
      connection.send("x");
      std::this_thread::sleep_for(100ms);  // the peer's pace, not a wait for the session
    }
  });
  auto request = requestFor(server.url("/drip"));
  request.timeoutInterval = 0.5s;
  const Outcome outcome = send(std::move(request));
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  EXPECT_EQ(toString(*outcome.body), std::string(12, 'x'));
}

// An answer of `bytes` bytes, declared by Content-Length or ended by closing the connection.
RawSocketServer::Handler answering(std::size_t bytes, bool declared) {
  return [bytes, declared](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n" +
                    (declared ? "Content-Length: " + std::to_string(bytes) + "\r\n" : "") + "\r\n");
    const std::string block(1 << 16, 'b');
    for (std::size_t left = bytes; left > 0; left -= std::min(left, block.size())) {
      connection.send(std::string_view(block).substr(0, std::min(left, block.size())));
    }
  };
}

TEST(SessionWireTest, BodiesArriveWholeUpToTheGuard) {
  constexpr std::size_t kMiB = 1 << 20;
  const struct {
    const char* name;
    std::size_t bytes, guard;
    bool declared, delivered;
  } cases[] = {{"64 MiB under the default guard", 64 * kMiB, 0, true, true},
               {"declared over the guard", kMiB + 1, kMiB, true, false},
               {"unframed over the guard", kMiB + 1, kMiB, false, false},
               {"unframed at the guard", kMiB, kMiB, false, true}};
  const URLSessionLimits defaults = urlSessionLimits();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    setURLSessionLimits({c.guard != 0 ? c.guard : defaults.maximumBodyBytes});
    RawSocketServer server(answering(c.bytes, c.declared));
    const Outcome outcome = send(requestFor(server.url("/big")));
    EXPECT_EQ(outcome.body ? outcome.body->size() : 0, c.delivered ? c.bytes : 0);
    EXPECT_EQ(outcome.error.value_or(Error{}).code, c.delivered ? 0 : -1103);
  }
  setURLSessionLimits(defaults);
}

// Compressed answers arrive decoded, and the body guard counts decoded bytes: 4 MiB of zeros
// that compress to a few kilobytes must not slip under a 1 MiB guard.
TEST(SessionWireTest, CompressedAnswersArriveDecodedAndTheGuardCountsDecodedBytes) {
  const std::string text(4 << 20, '0');
  test_support::RecordingServer server(
      [&](const httplib::Request&, httplib::Response& response) {
        response.set_content(text, "text/plain");
      },
      false);
  const URLSessionLimits defaults = urlSessionLimits();
  for (const std::size_t guard : {defaults.maximumBodyBytes, std::size_t{1} << 20}) {
    SCOPED_TRACE("guard " + std::to_string(guard));
    setURLSessionLimits({guard});
    const Outcome outcome = send(requestFor(server.url("/config")));
    const bool fits = guard > text.size();
    EXPECT_EQ(outcome.body.value_or(Bytes{}), fits ? toBytes(text) : Bytes{});
    EXPECT_EQ(outcome.error.value_or(Error{}).code, fits ? 0 : -1103);
    if (fits) {
      const auto http = asHTTPURLResponse(outcome.response);
      EXPECT_TRUE(http &&
                  std::any_of(http->allHeaderFields.begin(), http->allHeaderFields.end(),
                              [](const auto& field) { return field.first == "Content-Encoding"; }));
    }
  }
  setURLSessionLimits(defaults);
}

// The request's own User-Agent and Accept-Language replace the session's, never join them. (The
// session's fields on the wire are checked on every request of the real-peers suite.)
TEST(SessionWireTest, SessionFieldsGoOnTheWireUnlessTheRequestHasItsOwn) {
  test_support::RecordingServer server(echo, false);
  const auto& own = detail::processSessionFields();
  ASSERT_FALSE(send(requestFor(server.url("/plain"))).error);
  auto custom = requestFor(server.url("/custom"));
  custom.addValue("HostApp/7", "user-agent");
  custom.addValue("fr-CH", "Accept-Language");
  ASSERT_FALSE(send(std::move(custom)).error);
  const auto received = server.received();
  ASSERT_EQ(received.size(), 2U);
  EXPECT_EQ(received[0].values("Accept-Language"), Values{own.acceptLanguage});
  EXPECT_EQ(received[1].values("User-Agent"), Values{"HostApp/7"});
  EXPECT_EQ(received[1].values("Accept-Language"), Values{"fr-CH"});
}

TEST(SessionFields, UserAgentLanguageAndEncodingsAreShapedAsThePhoneSendsThem) {
  EXPECT_EQ(detail::userAgent({"My App", "12", "1.0.0", "Linux", "6.1.0-18-amd64"}),
            "My%20App/12 zelnora-url-session/1.0.0 Linux/6.1.0-18-amd64");
  EXPECT_EQ(detail::userAgent({"Caf\xC3\xA9", std::nullopt, "1.0.0", "Linux", "6.1"}),
            "Caf%C3%A9 zelnora-url-session/1.0.0 Linux/6.1");
  // clang-format off
  const struct { const char *all, *lang, *language, *expected; } locales[] = {
      {nullptr, "de_DE.UTF-8", nullptr, "de-DE,de;q=0.9"},
      {"pt_BR.UTF-8@x", "de_DE.UTF-8", nullptr, "pt-BR,pt;q=0.9"},
      {nullptr, "de_DE.UTF-8", "fr_CA:en", "fr-CA,fr;q=0.9,en;q=0.8"},
      {nullptr, "C.UTF-8", "fr_CA", "en-US,en;q=0.9"},
      {nullptr, "POSIX", nullptr, "en-US,en;q=0.9"},
      {nullptr, nullptr, nullptr, "en-US,en;q=0.9"}};
  // clang-format on
  for (const auto& c : locales) {
    const auto environment = [&](std::string_view name) -> const char* {
      return name == "LC_ALL"     ? c.all
             : name == "LANG"     ? c.lang
             : name == "LANGUAGE" ? c.language
                                  : nullptr;
    };
    EXPECT_EQ(detail::acceptLanguage(environment), c.expected) << (c.lang ? c.lang : "unset");
  }
  EXPECT_EQ(detail::acceptEncoding(true, true), "gzip, deflate, br");
  EXPECT_EQ(detail::acceptEncoding(false, true), "br");
}

// The resend rule: only what the server provably did not act on, or an idempotent request on a
// reused connection that died before any answer byte.
TEST(ResendRule, ResendsOnlyWhatTheServerCannotHaveActedOn) {
  using Outcome = detail::AttemptOutcome;
  // lost, connected, written, answered, reused, refused, idempotent, resent
  const std::pair<Outcome, bool> cases[] = {
      {{true, true, true, false, true, false, false, false}, false},   // POST on a stale connection
      {{true, true, true, false, true, false, true, false}, true},     // GET on a stale connection
      {{true, true, true, false, false, false, true, false}, false},   // GET on its own connection
      {{true, true, true, false, false, true, false, false}, true},    // refused HTTP/2 stream
      {{true, true, false, false, false, false, false, false}, true},  // never written
      {{true, false, false, false, false, false, true, false}, false},  // connect failed
      {{true, true, true, true, true, true, true, false}, false},       // an answer began
      {{true, true, true, false, true, true, true, true}, false},       // resent once already
      {{false, true, true, false, true, false, true, false}, false}};   // timed out, not lost
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(detail::shouldResend(cases[i].first), cases[i].second) << "case " << i;
  }
}

TEST(SessionWireTest, OversizedHeaderBlockFailsThatExchangeClearly) {
  // The guard's own edge is in session_limits_test.cpp; here libcurl's limit of a line.
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nX-Long: " + std::string(200'000, 'v') +
                    "\r\nContent-Length: 0\r\n\r\n");
  });
  const Error error = send(requestFor(server.url("/"))).error.value_or(Error{});
  EXPECT_EQ(error.code, kURLErrorBadServerResponse);
  EXPECT_EQ(error.localizedDescription(), "response header block too large");
}

constexpr const char* kCookieServer = "ZELNORA_TEST_COOKIE_SERVER";

// One launch of an app that talks to the server, in a process of its own.
int oneLaunch() {
  const std::string server = std::getenv(kCookieServer);
  setMainBundleDirectory(std::getenv("XDG_DATA_HOME"));
  if (std::getenv("ZELNORA_TEST_COOKIE_SET") != nullptr) send(requestFor(server + "/set"));
  return send(requestFor(server + "/check")).error ? 1 : 0;
}
const bool kOneLaunchRegistered = test_support::registerChildEntry("cookie-launch", oneLaunch);

TEST(SessionCookieTest, SetCookieIsSentBackNowAndInTheNextLaunch) {
  test_support::TempDirectory home;
  home.write("Info.plist",
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
             "<string>com.example.cookies</string></dict></plist>");
  test_support::RecordingServer server([](const httplib::Request& request, auto& response) {
    if (request.path == "/set") response.set_header("Set-Cookie", "visit=1; Max-Age=3600; Path=/");
  });
  for (bool setsCookie : {true, false}) {
    const auto launch = test_support::runChild(
        std::filesystem::read_symlink("/proc/self/exe"), {"--child", "cookie-launch"},
        {{kCookieServer, server.base()},
         {"XDG_DATA_HOME", home.path()},
         {"ZELNORA_TEST_COOKIE_SET", setsCookie ? std::optional("1") : std::nullopt}});
    EXPECT_EQ(launch.exitStatus, 0) << launch.standardOutput;
  }
  const auto received = server.received();
  ASSERT_EQ(received.size(), 3u);
  for (int i : {1, 2}) EXPECT_EQ(received[i].values("Cookie"), Values{"visit=1"});
  auto mode = [&](const char* name) {
    struct stat info {};
    return ::stat(home.file(name).c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
  };
  EXPECT_EQ(mode("zelnora/cookies/com.example.cookies"), 0600u);
  EXPECT_EQ(mode("zelnora/cookies"), 0700u);
}

}  // namespace
}  // namespace platform
