// The URL session on the wire as the phone's session behaves: one request is sent at most once,
// redirects change method and body by status, framing headers are the transport's own, the
// time-out measures silence, large answers arrive whole up to the memory guards, cookies persist.
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "platform/Bundle.h"
#include "platform/Services.h"
#include "platform/UrlSession.h"
#include "support/ChildTest.h"
#include "support/RawSocketServer.h"
#include "support/RecordingServer.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using test_support::RawSocketServer;
using Values = std::vector<std::string>;

struct Outcome {
  std::optional<Bytes> body;
  std::optional<URLResponse> response;
  std::optional<Error> error;
};

Outcome send(const std::string& url, std::string method = "GET",
             std::vector<std::pair<std::string, std::string>> headers = {},
             std::optional<std::string> body = std::nullopt, double timeoutSeconds = 20) {
  URLRequest request(*Url::parse(url), CachePolicy::useProtocolCachePolicy,
                     std::chrono::duration<double>(timeoutSeconds));
  request.httpMethod = std::move(method);
  for (const auto& [name, value] : headers) request.addValue(value, name);
  if (body) request.httpBody = toBytes(*body);
  auto outcome = std::make_shared<Outcome>();
  urlSession().dataTask(std::move(request), [outcome](auto body, auto response, auto error) {
    *outcome = {std::move(body), std::move(response), std::move(error)};
  });
  EXPECT_TRUE(urlSession().waitUntilIdle(120s));
  return *outcome;
}

TEST(SessionWireTest, RequestReadByAPeerThatThenClosesIsNeverSentAgain) {
  for (const char* method : {"GET", "POST"}) {
    SCOPED_TRACE(method);
    std::atomic<int> connections{0}, requests{0};
    RawSocketServer server([&](RawSocketServer::Connection& connection) {
      const bool first = connections++ == 0;
      for (int answered = 0;; ++answered) {
        const std::string head = connection.readRequestHead();
        if (head.empty()) return;
        ++requests;
        connection.readExactly(head.find("Content-Length: 13") == std::string::npos ? 0 : 13);
        if (first && answered == 1) return;  // the kept-alive connection dies unanswered
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
      }
    });
    ASSERT_FALSE(send(server.url("/first")).error);
    const Error lost =
        send(server.url("/report"), method, {}, "{\"events\":[]}").error.value_or(Error{});
    EXPECT_EQ(lost.code, kURLErrorNetworkConnectionLost);
    EXPECT_EQ(lost.localizedDescription(), "The network connection was lost.");
    EXPECT_EQ(requests.load(), 2);
  }
}

TEST(SessionWireTest, RedirectFollowsTheStatusRulesAndFramingIsTheTransports) {
  test_support::RecordingServer server([](const httplib::Request& request, auto& response) {
    if (request.path.starts_with("/go/"))
      return response.set_redirect("/landed", std::stoi(request.path.substr(4)));
    response.set_content("landed", "text/plain");
  });
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
    const Outcome outcome = send(server.url("/go/" + std::to_string(c.status)), c.method,
                                 {{"Content-Type", "application/json"},
                                  {"Content-Length", "7"},
                                  {"Host", "evil.example"},
                                  {"Transfer-Encoding", "chunked"},
                                  {"X-Keep", "yes"}},
                                 body, 5);
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
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 25\r\nConnection: close\r\n\r\n");
    for (int i = 0; i < 25; ++i) {
      connection.send("x");
      std::this_thread::sleep_for(100ms);  // the peer's pace, not a wait for the session
    }
  });
  const Outcome outcome = send(server.url("/drip"), "GET", {}, std::nullopt, 1);
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  EXPECT_EQ(toString(*outcome.body), std::string(25, 'x'));
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
    const Outcome outcome = send(server.url("/big"));
    EXPECT_EQ(outcome.body ? outcome.body->size() : 0, c.delivered ? c.bytes : 0);
    EXPECT_EQ(outcome.error.value_or(Error{}).code, c.delivered ? 0 : -1103);
  }
  setURLSessionLimits(defaults);
}

TEST(SessionWireTest, OversizedHeaderBlockFailsThatExchangeClearly) {
  std::string manyFields, oneLongLine = "X-Long: " + std::string(200'000, 'v') + "\r\n";
  for (int i = 0; i < 4000; ++i)
    manyFields += "X-F" + std::to_string(i) + ": " + std::string(90, 'v') + "\r\n";
  for (const std::string* fields : {&manyFields, &oneLongLine}) {
    RawSocketServer server([fields](RawSocketServer::Connection& connection) {
      connection.readRequestHead();
      connection.send("HTTP/1.1 200 OK\r\n" + *fields + "Content-Length: 0\r\n\r\n");
    });
    const Error error = send(server.url("/")).error.value_or(Error{});
    EXPECT_EQ(error.code, kURLErrorBadServerResponse);
    EXPECT_EQ(error.localizedDescription(), "response header block too large");
  }
}

constexpr const char* kCookieServer = "ZELNORA_TEST_COOKIE_SERVER";

// Runs only as a child process of the test below: one launch of an app that talks to the server.
TEST(SessionCookieTest, OneLaunch) {
  const char* server = std::getenv(kCookieServer);
  if (server == nullptr) GTEST_SKIP() << "runs as a child process only";
  setMainBundleDirectory(std::getenv("XDG_DATA_HOME"));
  if (std::getenv("ZELNORA_TEST_COOKIE_SET") != nullptr) send(std::string(server) + "/set");
  EXPECT_FALSE(send(std::string(server) + "/check").error);
}

TEST(SessionCookieTest, SetCookieIsSentBackNowAndInTheNextLaunch) {
  test_support::TempDirectory home;
  home.write("Info.plist",
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
             "<string>com.example.cookies</string></dict></plist>");
  test_support::RecordingServer server([](const httplib::Request& request, auto& response) {
    if (request.path == "/set") response.set_header("Set-Cookie", "visit=1; Max-Age=3600; Path=/");
  });
  for (bool setsCookie : {true, false}) {
    std::vector<std::string> variables{std::string(kCookieServer) + "=" + server.base(),
                                       "XDG_DATA_HOME=" + home.path()};
    if (setsCookie) variables.push_back("ZELNORA_TEST_COOKIE_SET=1");
    const pid_t child = test_support::spawnTestInChild("SessionCookieTest.OneLaunch", variables);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
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
