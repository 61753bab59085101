// The Linux URL session against real loopback servers: what goes on the wire, what comes back,
// transport failures, and completions under concurrency.
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "../../platform/src/LinuxProviders.h"
#include "platform/UrlSession.h"
#include "platform/testing/FaultInjectingSession.h"
#include "support/LoopbackSocket.h"
#include "support/RawSocketServer.h"
#include "support/RecordingServer.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test_support::RawSocketServer;
using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr auto kIdleLimit = 30s;

URLSession& session() { return linux_provider::urlSession(); }

URLRequest requestFor(const std::string& text) {
  auto url = Url::parse(text);
  EXPECT_TRUE(url) << text;
  return URLRequest(url.value_or(*Url::parse("http://invalid.invalid/")));
}

struct Outcome {
  int calls = 0;
  std::optional<Bytes> body;
  std::optional<URLResponse> response;
  std::optional<Error> error;
  std::thread::id thread;
};

// Sends one request and waits for the session to go idle; the completion's view of it.
Outcome send(URLRequest request) {
  auto outcome = std::make_shared<Outcome>();
  session().dataTask(std::move(request), [outcome](auto body, auto response, auto error) {
    ++outcome->calls;
    outcome->body = std::move(body);
    outcome->response = std::move(response);
    outcome->error = std::move(error);
    outcome->thread = std::this_thread::get_id();
  });
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
  return *outcome;
}

// The routes the session's tests talk to: "/echo..." answers "echo:<i>", "/status/NNN" with
// status NNN, "/redirect" sends on to "/final?x=1".
void answerRoute(const httplib::Request& request, httplib::Response& response) {
  static const std::regex status(R"(/status/(\d+))");
  std::smatch code;
  if (request.path.rfind("/echo", 0) == 0 && request.method != "PATCH") {
    response.set_content("echo:" + request.get_param_value("i"), "text/plain");
  } else if (request.method != "GET" && request.method != "HEAD") {
    response.status = 404;
  } else if (std::regex_match(request.path, code, status)) {
    response.status = std::stoi(code[1]);
    if (response.status != 204 && response.status != 304) {
      response.set_content("status " + code[1].str(), "text/plain");
    }
  } else if (request.path == "/redirect") {
    response.set_header("X-First", "yes");
    response.set_redirect("/final?x=1", 302);
  } else if (request.path == "/final") {
    response.set_header("X-Final", "yes");
    response.set_content("final", "text/plain");
  } else {
    response.status = 404;
  }
}

// A loopback server answering the routes above. Without keep-alive the server's threads end with
// each answer, so stopping it is quick.
class LoopbackServer : public test_support::RecordingServer {
 public:
  explicit LoopbackServer(bool keepAlive = false)
      : RecordingServer(
            answerRoute,
            {.keepAlive = keepAlive, .keepAliveTimeoutSeconds = 1, .payloadMaxLength = 64 << 20}) {}
};

// ---- What the server receives --------------------------------------------------------------

struct MethodCase {
  std::string method;
  std::optional<std::string> body;
  friend void PrintTo(const MethodCase& c, std::ostream* os) {
    *os << c.method << (c.body ? " with body" : " without body");
  }
};

class SessionRequestTest : public ::testing::TestWithParam<MethodCase> {};

TEST_P(SessionRequestTest, ServerReceivesMethodTargetHeadersAndExactBody) {
  const auto& [method, body] = GetParam();
  LoopbackServer server;
  auto request = requestFor(server.url("/echo/a%20b?i=7&q=x%2By"));
  request.httpMethod = method;
  request.addValue("application/json; charset=UTF-8", "Content-Type");
  request.addValue("*/*", "Accept");
  request.addValue("text/plain", "accept");
  request.addValue(std::to_string(body ? body->size() : 0), "Content-Length");
  request.addValue("127.0.0.1", "Host");
  request.addValue("c7a1", "X-ZELNORA-CHANNEL-UUID");
  if (body) request.httpBody = toBytes(*body);

  const auto outcome = send(std::move(request));

  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  EXPECT_EQ(outcome.response->statusCode, 200);
  EXPECT_EQ(toString(*outcome.body), "echo:7");
  const auto received = server.received();
  ASSERT_EQ(received.size(), 1u);
  const auto& seen = received.front();
  EXPECT_EQ(seen.method, method);
  EXPECT_EQ(seen.path, "/echo/a b");
  EXPECT_EQ(seen.params.find("q")->second, "x+y");
  EXPECT_EQ(seen.body, body.value_or(""));
  const std::vector<std::pair<std::string, std::string>> expected{
      {"Content-Type", "application/json; charset=UTF-8"},
      {"Accept", "*/*,text/plain"},
      {"X-ZELNORA-CHANNEL-UUID", "c7a1"}};
  for (const auto& [name, value] : expected) {
    EXPECT_EQ(seen.values(name), std::vector<std::string>{value}) << name;
  }
  EXPECT_TRUE(seen.values("Expect").empty());
}

INSTANTIATE_TEST_SUITE_P(
    Methods, SessionRequestTest,
    ::testing::Values(MethodCase{"GET", std::nullopt},
                      MethodCase{"POST", "{\"event\":\"open\",\"bin\":\"\0\xFF\"}"s},
                      MethodCase{"POST", std::nullopt}, MethodCase{"PUT", "{\"user\":\"u\"}"},
                      MethodCase{"DELETE", std::nullopt}, MethodCase{"DELETE", "{\"id\":3}"},
                      MethodCase{"OPTIONS", std::nullopt}),
    [](const auto& info) {
      return info.param.method + (info.param.body ? "WithBody" : "WithoutBody");
    });

TEST(SessionHeaderTest, FieldsThatCouldInjectHeadersNeverReachTheWire) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
  });
  auto request = requestFor(server.url("/inject"));
  request.addValue("ok", "X-Good");
  request.addValue("", "X-Empty");
  request.addValue("a\r\nX-Injected: cr-lf", "X-Bad-1");
  request.addValue("a\nX-Injected: lf", "X-Bad-2");
  request.addValue("a\rX-Injected: cr", "X-Bad-3");
  request.addValue(std::string("a\0X-Injected: nul", 17), "X-Bad-4");
  request.addValue("v", "X-Injected: name\r\nX-Bad-5");
  request.addValue("v", "Bad Name");
  request.addValue("v", "Bad:Name");
  request.addValue("v", "");

  const auto outcome = send(std::move(request));

  ASSERT_FALSE(outcome.error);
  EXPECT_EQ(toString(*outcome.body), "ok");
  const auto heads = server.requestHeads();
  ASSERT_EQ(heads.size(), 1u);
  const std::string& head = heads.front();
  EXPECT_NE(head.find("\r\nX-Good: ok\r\n"), std::string::npos) << head;
  EXPECT_NE(head.find("\r\nX-Empty:\r\n"), std::string::npos) << "sent with its empty value";
  for (const char* leaked : {"X-Injected", "X-Bad", "Bad Name", "Bad:Name", "\r\n: v"}) {
    EXPECT_EQ(head.find(leaked), std::string::npos) << leaked << " in\n" << head;
  }
}

TEST(SessionHeaderTest, GetCarriesBodyWhenGivenOne) {
  std::mutex mutex;
  std::string bodySeen;
  RawSocketServer server([&](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    std::string body = connection.readExactly(7);
    {
      std::lock_guard lock(mutex);
      bodySeen = std::move(body);
    }
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  });
  auto request = requestFor(server.url("/search"));
  request.httpBody = toBytes("{\"q\":1}");

  const auto outcome = send(std::move(request));

  ASSERT_FALSE(outcome.error);
  const auto head = server.requestHeads().at(0);
  EXPECT_EQ(head.substr(0, 16), "GET /search HTTP");
  EXPECT_NE(head.find("\r\nContent-Length: 7\r\n"), std::string::npos) << head;
  std::lock_guard lock(mutex);
  EXPECT_EQ(bodySeen, "{\"q\":1}");
}

TEST(SessionHeaderTest, ContentLengthOtherThanBodySizeIsReplacedByCurls) {
  for (const char* declared : {"3", "12,11", "abc", "-11", "11 11"}) {
    LoopbackServer server;
    auto request = requestFor(server.url("/echo"));
    request.httpMethod = "POST";
    request.httpBody = toBytes("hello world");
    request.addValue(declared, "Content-Length");

    const auto outcome = send(std::move(request));

    ASSERT_FALSE(outcome.error) << declared;
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u) << declared;
    EXPECT_EQ(received.front().body, "hello world") << declared;
    EXPECT_EQ(received.front().values("Content-Length"), std::vector<std::string>{"11"})
        << declared;
  }
}

TEST(SessionHeaderTest, LargeBodyGoesOutWithoutExpectContinue) {
  LoopbackServer server;
  std::string large(3 << 20, 'z');
  large[12345] = '\0';
  auto request = requestFor(server.url("/echo"));
  request.httpMethod = "POST";
  request.httpBody = toBytes(large);
  request.addValue("application/octet-stream", "Content-Type");

  const auto outcome = send(std::move(request));

  ASSERT_FALSE(outcome.error);
  const auto received = server.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received.front().body == large);
  EXPECT_TRUE(received.front().values("Expect").empty());
}

// ---- What comes back -------------------------------------------------------------------------

TEST(SessionResponseTest, EveryStatusClassArrivesWithItsBody) {
  LoopbackServer server;
  for (int status : {200, 201, 204, 301, 304, 404, 500, 503}) {
    const auto outcome = send(requestFor(server.url("/status/" + std::to_string(status))));
    ASSERT_FALSE(outcome.error) << status;
    ASSERT_TRUE(outcome.response) << status;
    EXPECT_EQ(outcome.response->statusCode, status);
    ASSERT_TRUE(outcome.body) << "an answer always has a body, maybe empty";
    const bool empty = status == 204 || status == 304;
    EXPECT_EQ(toString(*outcome.body), empty ? "" : "status " + std::to_string(status));
  }
}

TEST(SessionResponseTest, HeadAnswersWithEmptyBodyDespiteContentLength) {
  LoopbackServer server;
  auto request = requestFor(server.url("/echo?i=5"));
  request.httpMethod = "HEAD";
  request.timeoutInterval = 20s;
  const auto outcome = send(std::move(request));
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  EXPECT_EQ(outcome.response->statusCode, 200);
  EXPECT_EQ(toString(*outcome.body), "");
  ASSERT_EQ(server.received().size(), 1u);
  EXPECT_EQ(server.received().front().method, "HEAD");
}

TEST(SessionResponseTest, RedirectIsFollowedAndOnlyFinalHeadersKept) {
  LoopbackServer server;
  const auto outcome = send(requestFor(server.url("/redirect")));
  ASSERT_FALSE(outcome.error);
  const auto http = asHTTPURLResponse(outcome.response);
  ASSERT_TRUE(http);
  EXPECT_EQ(http->statusCode, 200);
  EXPECT_EQ(http->url, server.url("/final?x=1"));
  EXPECT_EQ(toString(*outcome.body), "final");
  HeaderFields fields;
  for (const auto& [name, value] : http->allHeaderFields) fields.setValue(value, name);
  EXPECT_EQ(fields.value("X-Final"), "yes");
  EXPECT_EQ(fields.value("X-First"), std::nullopt);
}

TEST(SessionResponseTest, UrlKeepsItsTextWithoutRedirect) {
  LoopbackServer server;
  const std::string text = server.url("");
  const auto outcome = send(requestFor(text));
  ASSERT_FALSE(outcome.error);
  EXPECT_EQ(outcome.response->url, text) << "no trailing slash is added";
}

TEST(SessionResponseTest, HeadersKeepArrivalOrderAndJoinRepeats) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send(
        "HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n"
        "HTTP/1.1 202 Accepted\r\nZ-Last: 1\r\nA-First:  2 \r\nz-last: 3\r\n"
        "Content-Length: 4\r\nConnection: close\r\n\r\nbody");
  });
  const auto outcome = send(requestFor(server.url("/")));
  ASSERT_FALSE(outcome.error);
  EXPECT_EQ(outcome.response->statusCode, 202);
  const Fields expected{
      {"Z-Last", "1, 3"}, {"A-First", "2"}, {"Content-Length", "4"}, {"Connection", "close"}};
  EXPECT_EQ(outcome.response->headerFields, expected);
  EXPECT_EQ(toString(*outcome.body), "body");
}

TEST(SessionResponseTest, FileUrlGivesNonHttpResponse) {
  char path[] = "/tmp/zelnora-url-session-XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const std::string contents("file \0 bytes\n", 13);
  ASSERT_EQ(write(fd, contents.data(), contents.size()), static_cast<ssize_t>(contents.size()));
  close(fd);

  const auto outcome = send(requestFor(std::string("file://") + path));
  std::remove(path);

  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, std::nullopt);
  EXPECT_FALSE(asHTTPURLResponse(outcome.response));
  EXPECT_EQ(toString(*outcome.body), contents);
}

// ---- Transport failures ----------------------------------------------------------------------

void expectTransportError(const Outcome& outcome, std::int64_t code) {
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_FALSE(outcome.body);
  EXPECT_FALSE(outcome.response);
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->domain, "NSURLErrorDomain");
  EXPECT_EQ(outcome.error->code, code) << outcome.error->localizedDescription();
  EXPECT_FALSE(outcome.error->localizedDescription().empty());
}

TEST(SessionFailureTest, RefusedConnectionIsCannotConnect) {
  const auto url = "http://127.0.0.1:" + std::to_string(test_support::refusedPort()) + "/";
  expectTransportError(send(requestFor(url)), kURLErrorCannotConnectToHost);
}

TEST(SessionFailureTest, UnsupportedSchemeIsUnsupportedUrl) {
  expectTransportError(send(requestFor("ftp://127.0.0.1/file")), kURLErrorUnsupportedURL);
}

TEST(SessionFailureTest, MethodThatWouldBreakTheRequestLineIsNotSent) {
  LoopbackServer server;
  auto request = requestFor(server.url("/echo"));
  request.httpMethod = "GET /other HTTP/1.1\r\nX-Injected: 1\r\nX-Tail:";
  expectTransportError(send(std::move(request)), kURLErrorUnknown);
  EXPECT_TRUE(server.received().empty());
}

TEST(SessionFailureTest, TlsHandshakeWithPlainPeerIsSecureConnectionFailure) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readExactly(5);  // the start of a ClientHello
    connection.send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
  });
  const auto url = "https://127.0.0.1:" + std::to_string(server.port()) + "/";
  expectTransportError(send(requestFor(url)), kURLErrorSecureConnectionFailed);
}

struct PeerCase {
  std::string name;
  std::function<void(RawSocketServer::Connection&)> behaviour;
  std::int64_t code;
  friend void PrintTo(const PeerCase& c, std::ostream* os) { *os << c.name; }
};

class SessionPeerFailureTest : public ::testing::TestWithParam<PeerCase> {};

TEST_P(SessionPeerFailureTest, EndsWithOneTransportError) {
  RawSocketServer server(GetParam().behaviour);
  expectTransportError(send(requestFor(server.url("/"))), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Peers, SessionPeerFailureTest,
    ::testing::Values(PeerCase{"ResetAfterRequest",
                               [](auto& connection) {
                                 connection.readRequestHead();
                                 connection.reset();
                               },
                               kURLErrorNetworkConnectionLost},
                      PeerCase{"CloseWithoutAnswer",
                               [](auto& connection) { connection.readRequestHead(); },
                               kURLErrorNetworkConnectionLost},
                      PeerCase{"GarbageStatusLine",
                               [](auto& connection) {
                                 connection.readRequestHead();
                                 connection.send("garbage that is not HTTP\r\n\r\n");
                               },
                               kURLErrorBadServerResponse},
                      PeerCase{"BodyCutShort",
                               [](auto& connection) {
                                 connection.readRequestHead();
                                 connection.send(
                                     "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly ten..");
                               },
                               kURLErrorNetworkConnectionLost}),
    [](const auto& info) { return info.param.name; });

TEST(SessionFailureTest, StalledPeerTimesOut) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.waitForRelease();
  });
  auto request = requestFor(server.url("/stall"));
  request.timeoutInterval = 0.5s;
  expectTransportError(send(std::move(request)), kURLErrorTimedOut);
}

// ---- Completions and idleness ----------------------------------------------------------------

TEST(SessionCompletionTest, WaitUntilIdleWaitsForTasksInFlight) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.waitForRelease();
  });
  std::atomic<int> calls{0};
  session().dataTask(requestFor(server.url("/held")), [&](auto, auto, auto) { ++calls; });

  EXPECT_FALSE(session().waitUntilIdle(50ms));
  EXPECT_EQ(calls.load(), 0);
  server.release();
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
  EXPECT_EQ(calls.load(), 1);
}

TEST(SessionCompletionTest, ThrowingCompletionLeavesWorkerRunning) {
  LoopbackServer server;
  session().dataTask(requestFor(server.url("/echo")),
                     [](auto, auto, auto) { throw std::runtime_error("host bug"); });
  ASSERT_TRUE(session().waitUntilIdle(kIdleLimit));
  const auto outcome = send(requestFor(server.url("/echo?i=2")));
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(toString(outcome.body.value_or(Bytes{})), "echo:2");
}

TEST(SessionCompletionTest, CompletionMayStartAnotherTask) {
  LoopbackServer server;
  std::mutex mutex;
  std::condition_variable done;
  std::optional<std::string> secondBody;
  const auto secondUrl = server.url("/echo?i=second");
  session().dataTask(requestFor(server.url("/echo?i=first")), [&](auto, auto, auto) {
    session().dataTask(requestFor(secondUrl), [&](auto body, auto, auto) {
      std::lock_guard lock(mutex);
      secondBody = toString(body.value_or(Bytes{}));
      done.notify_all();
    });
  });
  std::unique_lock lock(mutex);
  ASSERT_TRUE(done.wait_for(lock, kIdleLimit, [&] { return secondBody.has_value(); }));
  EXPECT_EQ(*secondBody, "echo:second");
  lock.unlock();
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
}

TEST(FaultInjectingSessionTest, FailsChosenTasksOffCallerThreadAndRecordsAll) {
  LoopbackServer server;
  testing::FaultInjectingSession faulty(session());
  const Error offline{kURLErrorDomain, -1009, "The Internet connection appears to be offline."};
  faulty.failWith(offline);
  Outcome failed;
  faulty.dataTask(requestFor(server.url("/echo?i=1")), [&](auto body, auto response, auto error) {
    ++failed.calls;
    failed.body = body;
    failed.response = response;
    failed.error = error;
    failed.thread = std::this_thread::get_id();
  });
  ASSERT_TRUE(faulty.waitUntilIdle(kIdleLimit));
  faulty.failWith(std::nullopt);
  Outcome sent;
  faulty.dataTask(requestFor(server.url("/echo?i=2")), [&](auto body, auto, auto error) {
    ++sent.calls;
    sent.body = body;
    sent.error = error;
  });
  ASSERT_TRUE(faulty.waitUntilIdle(kIdleLimit));

  EXPECT_EQ(failed.calls, 1);
  EXPECT_EQ(failed.error, offline);
  EXPECT_FALSE(failed.body || failed.response);
  EXPECT_NE(failed.thread, std::this_thread::get_id());
  EXPECT_EQ(sent.calls, 1);
  EXPECT_EQ(toString(sent.body.value_or(Bytes{})), "echo:2");
  ASSERT_EQ(server.received().size(), 1u) << "the failed request never left";
  ASSERT_EQ(faulty.requests().size(), 2u);
  EXPECT_EQ(faulty.requests()[0].url.absoluteString(), server.url("/echo?i=1"));
}

TEST(SessionConcurrencyTest, ConcurrentTasksCompleteExactlyOnceOffCallerThreads) {
  constexpr int kThreads = 4;
  constexpr int kTasksPerThread = 125;
  LoopbackServer server(/*keepAlive=*/true);
  std::vector<std::atomic<int>> calls(kThreads * kTasksPerThread);
  std::atomic<int> onCallerThread{0};
  std::atomic<int> wrongBody{0};

  std::vector<std::thread> callers;
  for (int t = 0; t < kThreads; ++t) {
    callers.emplace_back([&, t] {
      const auto caller = std::this_thread::get_id();
      for (int i = t * kTasksPerThread; i < (t + 1) * kTasksPerThread; ++i) {
        auto request = requestFor(server.url("/echo?i=" + std::to_string(i)));
        request.httpMethod = i % 2 == 0 ? "GET" : "POST";
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
  EXPECT_EQ(onCallerThread.load(), 0);
  EXPECT_EQ(wrongBody.load(), 0);
  EXPECT_EQ(server.received().size(), calls.size());
}

}  // namespace
}  // namespace platform
