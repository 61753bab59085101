// The Linux URL session against loopback servers: what goes on the wire, what comes back, how
// exchanges fail, and that every task completes exactly once off the caller's thread.
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "../../platform/src/LinuxProviders.h"
#include "platform/UrlSession.h"
#include "support/LoopbackSocket.h"
#include "support/RawSocketServer.h"
#include "support/RecordingServer.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test_support::RawSocketServer;
using Connection = RawSocketServer::Connection;

constexpr auto kIdleLimit = 60s;

URLSession& session() { return linux_provider::urlSession(); }

URLRequest requestFor(const std::string& text, std::string method = "GET") {
  URLRequest request(Url::parse(text).value_or(*Url::parse("http://invalid.invalid/")));
  request.httpMethod = std::move(method);
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
    ++outcome->calls;
    outcome->body = std::move(body);
    outcome->response = std::move(response);
    outcome->error = std::move(error);
  });
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
  return *outcome;
}

// Bytes that differ from their neighbours, so that a lost, doubled or reordered piece shows.
std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

void echoParameter(const httplib::Request& request, httplib::Response& response) {
  response.set_content("echo:" + request.get_param_value("i"), "text/plain");
}

TEST(UrlSessionRequest, ServerReceivesMethodTargetHeadersAndExactBody) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"GET", std::nullopt},      {"POST", "{\"event\":\"open\",\"bin\":\"\0\xFF\"}"s},
      {"POST", std::nullopt},     {"PUT", "{\"user\":\"u\"}"},
      {"DELETE", "{\"id\":3}"},   {"OPTIONS", std::nullopt},
      {"POST", pattern(3 << 20)},  // large enough for curl to want "Expect: 100-continue"
  };
  for (const auto& [method, body] : cases) {
    SCOPED_TRACE(method + (body ? " with body of " + std::to_string(body->size()) : ""));
    test_support::RecordingServer server(echoParameter, {.keepAlive = false});
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
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    const auto& seen = received.front();
    EXPECT_EQ(seen.method, method);
    EXPECT_EQ(seen.path, "/echo/a b");
    EXPECT_EQ(seen.params.find("q")->second, "x+y");
    EXPECT_TRUE(seen.body == body.value_or(""));
    const std::pair<std::string, std::string> expected[] = {
        {"Content-Type", "application/json; charset=UTF-8"},
        {"Accept", "*/*,text/plain"},
        {"X-ZELNORA-CHANNEL-UUID", "c7a1"}};
    for (const auto& [name, value] : expected) {
      EXPECT_EQ(seen.values(name), std::vector<std::string>{value}) << name;
    }
    const auto length = seen.values("Content-Length");  // the transport's own, never the "3"
    EXPECT_TRUE(body ? length == std::vector{std::to_string(body->size())}
                     : length.empty() || length == std::vector<std::string>{"0"});
    EXPECT_TRUE(seen.values("Expect").empty());
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
  request.addValue("ok", "X-Good");
  request.addValue("", "X-Empty");
  request.addValue("a\r\nX-Injected: cr-lf", "X-Bad-1");
  request.addValue("a\nX-Injected: lf", "X-Bad-2");
  request.addValue("a\rX-Injected: cr", "X-Bad-3");
  request.addValue("a\0X-Injected: nul"s, "X-Bad-4");
  request.addValue("v", "X-Injected: name\r\nX-Bad-5");
  request.addValue("v", "Bad Name");
  request.addValue("v", "Bad:Name");
  request.addValue("v", "");

  const auto outcome = send(std::move(request));

  ASSERT_FALSE(outcome.error);
  EXPECT_EQ(toString(*outcome.body), "ok");
  EXPECT_EQ(bodySeen, "{\"q\":1}");  // read by the server's thread, which has ended
  const std::string head = server.requestHeads().at(0);
  EXPECT_EQ(head.substr(0, 16), "GET /search HTTP");
  for (const char* sent : {"\r\nContent-Length: 7\r\n", "\r\nX-Good: ok\r\n", "\r\nX-Empty:\r\n"}) {
    EXPECT_NE(head.find(sent), std::string::npos) << sent << " missing from\n" << head;
  }
  for (const char* leaked : {"X-Injected", "X-Bad", "Bad Name", "Bad:Name", "\r\n: v"}) {
    EXPECT_EQ(head.find(leaked), std::string::npos) << leaked << " in\n" << head;
  }
}

// Answers by the path of the request: each row below asks for one.
void answerByPath(Connection& connection, const std::string& large) {
  const std::string head = connection.readRequestHead();
  const auto path = head.substr(head.find(' ') + 1, head.find(" HTTP") - head.find(' ') - 1);
  if (path == "/chunked") {
    connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n");
    for (std::size_t at = 0; at < large.size(); at += 65536) {
      char size[32];
      std::snprintf(size, sizeof size, "%zx\r\n", std::min<std::size_t>(65536, large.size() - at));
      connection.send(size + large.substr(at, 65536) + "\r\n");
    }
    connection.send("0\r\n\r\n");
  } else if (path == "/until-close") {
    connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + large);
  } else if (path == "/head") {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nConnection: close\r\n\r\n");
  } else if (path == "/empty") {
    connection.send("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
  } else {
    connection.send(
        "HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n"
        "HTTP/1.1 503 Unavailable\r\nZ-Last: 1\r\nA-First:  2 \r\n"
        "Content-Length: 4\r\nConnection: close\r\n\r\nbody");
  }
}

TEST(UrlSessionResponse, StatusHeadersAndWholeBodyArriveAsSent) {
  const std::string large = pattern(1 << 20);
  RawSocketServer server([&](Connection& connection) { answerByPath(connection, large); });
  struct Case {
    std::string path, method;
    int status;
    std::string body;
  };
  const Case cases[] = {
      {"/chunked", "GET", 200, large}, {"/until-close", "GET", 200, large},
      {"/head", "HEAD", 200, ""},      {"/empty", "GET", 204, ""},
      {"/status", "GET", 503, "body"},
  };
  for (const Case& c : cases) {
    const auto outcome = send(requestFor(server.url(c.path), c.method));
    ASSERT_FALSE(outcome.error) << c.path << ": " << outcome.error->localizedDescription();
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.response->statusCode, c.status) << c.path;
    EXPECT_EQ(outcome.response->url, server.url(c.path));
    ASSERT_TRUE(outcome.body) << c.path << ": an answer always has a body, maybe empty";
    EXPECT_TRUE(toString(*outcome.body) == c.body) << c.path;
  }
  const auto status = send(requestFor(server.url("/status")));
  const std::vector<std::pair<std::string, std::string>> headers{
      {"Z-Last", "1"}, {"A-First", "2"}, {"Content-Length", "4"}, {"Connection", "close"}};
  EXPECT_EQ(status.response->headerFields, headers) << "in arrival order, interim ones left out";
  EXPECT_EQ(send(requestFor(server.url(""))).response->url, server.url("")) << "no '/' added";

  test_support::TempDirectory dir;
  const std::string contents = "file \0 bytes\n"s;
  const auto file = send(requestFor("file://" + dir.write("f", contents)));
  ASSERT_FALSE(file.error);
  EXPECT_EQ(file.response->statusCode, std::nullopt);
  EXPECT_EQ(toString(*file.body), contents);
}

TEST(UrlSessionFailure, EachEndsInOneCompletionWithTheTransportError) {
  struct Case {
    const char* label;
    std::function<void(Connection&)> peer;
    std::int64_t code;
    std::string scheme = "http", method = "GET";
  };
  const auto afterRequest = [](std::string answer) {
    return [answer](Connection& connection) {
      connection.readRequestHead();
      connection.send(answer);
    };
  };
  const Case cases[] = {
      {"reset after the request",
       [](Connection& connection) {
         connection.readRequestHead();
         connection.reset();
       },
       kURLErrorNetworkConnectionLost},
      {"closed without an answer", afterRequest(""), kURLErrorNetworkConnectionLost},
      {"garbage status line", afterRequest("garbage that is not HTTP\r\n\r\n"),
       kURLErrorBadServerResponse},
      {"body cut short", afterRequest("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly ten.."),
       kURLErrorNetworkConnectionLost},
      {"stalled peer",
       [](Connection& connection) {
         connection.readRequestHead();
         connection.waitForRelease();
       },
       kURLErrorTimedOut},
      {"TLS handshake with a plain peer",
       [](Connection& connection) {
         connection.readExactly(5);  // the start of a ClientHello
         connection.send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
       },
       kURLErrorSecureConnectionFailed, "https"},
      {"unsupported scheme", afterRequest(""), kURLErrorUnsupportedURL, "ftp"},
      {"method that would break the request line", afterRequest(""), kURLErrorUnknown, "http",
       "GET /other HTTP/1.1\r\nX-Injected: 1\r\nX-Tail:"},
      {"refused connection", nullptr, kURLErrorCannotConnectToHost},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    std::optional<RawSocketServer> server;
    int port = test_support::refusedPort();
    if (c.peer) port = server.emplace(c.peer).port();
    auto request = requestFor(c.scheme + "://127.0.0.1:" + std::to_string(port) + "/x", c.method);
    request.timeoutInterval = 0.5s;
    const auto outcome = send(std::move(request));
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.body || outcome.response);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(outcome.error->code, c.code) << outcome.error->localizedDescription();
    EXPECT_FALSE(outcome.error->localizedDescription().empty());
    if (c.method != "GET") {
      EXPECT_TRUE(server->requestHeads().empty()) << "nothing was sent";
    }
  }
}

TEST(UrlSessionCompletion, IdleWaitsForTasksAndTheWorkerOutlivesItsCompletions) {
  RawSocketServer held([](Connection& connection) {
    connection.readRequestHead();
    connection.waitForRelease();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  });
  std::atomic<int> calls{0};
  session().dataTask(requestFor(held.url("/held")), [&](auto, auto, auto) { ++calls; });
  EXPECT_FALSE(session().waitUntilIdle(50ms));
  EXPECT_EQ(calls.load(), 0);
  held.release();
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
  EXPECT_EQ(calls.load(), 1);

  // A completion that throws, then one that starts another task from the session's queue.
  test_support::RecordingServer server(echoParameter, {.keepAlive = false});
  session().dataTask(requestFor(server.url("/echo")),
                     [](auto, auto, auto) { throw std::runtime_error("host bug"); });
  std::mutex mutex;
  std::condition_variable done;
  std::optional<std::string> second;
  session().dataTask(requestFor(server.url("/echo?i=first")), [&](auto, auto, auto) {
    session().dataTask(requestFor(server.url("/echo?i=second")), [&](auto body, auto, auto) {
      std::lock_guard lock(mutex);
      second = toString(body.value_or(Bytes{}));
      done.notify_all();
    });
  });
  std::unique_lock lock(mutex);
  ASSERT_TRUE(done.wait_for(lock, kIdleLimit, [&] { return second.has_value(); }));
  EXPECT_EQ(*second, "echo:second");
  lock.unlock();
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
}

TEST(UrlSessionConcurrency, ConcurrentTasksCompleteExactlyOnceOffCallerThreads) {
  constexpr int kThreads = 4, kTasksPerThread = 50;
  test_support::RecordingServer server(echoParameter, {.keepAlive = false});
  std::vector<std::atomic<int>> calls(kThreads * kTasksPerThread);
  std::atomic<int> onCallerThread{0}, wrongBody{0};
  std::vector<std::thread> callers;
  for (int t = 0; t < kThreads; ++t) {
    callers.emplace_back([&, t] {
      const auto caller = std::this_thread::get_id();
      for (int i = t * kTasksPerThread; i < (t + 1) * kTasksPerThread; ++i) {
        auto request =
            requestFor(server.url("/echo?i=" + std::to_string(i)), i % 2 == 0 ? "GET" : "POST");
        session().dataTask(std::move(request), [&, i, caller](auto body, auto, auto error) {
          calls[i].fetch_add(1);
          if (std::this_thread::get_id() == caller) onCallerThread.fetch_add(1);
          if (error || toString(*body) != "echo:" + std::to_string(i)) wrongBody.fetch_add(1);
        });
      }
    });
  }
  for (auto& caller : callers) caller.join();
  ASSERT_TRUE(session().waitUntilIdle(kIdleLimit));
  for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].load(), 1) << "task " << i;
  EXPECT_EQ(onCallerThread.load(), 0);
  EXPECT_EQ(wrongBody.load(), 0);
  EXPECT_EQ(server.received().size(), calls.size());
}

}  // namespace
}  // namespace platform
