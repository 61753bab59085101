// The Linux URL session's cap on response bodies: answers up to the cap arrive whole; longer ones,
// whether declared, chunked or delimited by the close, end in one "exceeds maximum size" error.
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../../platform/src/LinuxProviders.h"
#include "platform/UrlSession.h"
#include "support/RawSocketServer.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using test_support::RawSocketServer;

// The session's cap (kMaxResponseBodyBytes in CurlUrlSession.cpp), repeated on purpose: moving the
// cap must make the cases at and around it fail here.
constexpr std::size_t kBodyCap = 4 << 20;
constexpr std::size_t kChunkBytes = 64 << 10;
constexpr auto kIdleLimit = 60s;
constexpr const char* kSmallAnswer =
    "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 5\r\n\r\nsmall";

URLSession& session() { return linux_provider::urlSession(); }

URLRequest requestFor(const std::string& text) {
  auto url = Url::parse(text);
  EXPECT_TRUE(url) << text;
  URLRequest request(url.value_or(*Url::parse("http://invalid.invalid/")));
  // A session that kept waiting for a body it should have refused ends here, not in a hang.
  request.timeoutInterval = 30s;
  return request;
}

struct Outcome {
  int calls = 0;
  std::optional<Bytes> body;
  std::optional<URLResponse> response;
  std::optional<Error> error;
};

DataTaskCompletion recordInto(std::shared_ptr<Outcome> outcome) {
  return [outcome](auto body, auto response, auto error) {
    ++outcome->calls;
    outcome->body = std::move(body);
    outcome->response = std::move(response);
    outcome->error = std::move(error);
  };
}

Outcome send(URLRequest request) {
  auto outcome = std::make_shared<Outcome>();
  session().dataTask(std::move(request), recordInto(outcome));
  EXPECT_TRUE(session().waitUntilIdle(kIdleLimit));
  return *outcome;
}

void expectBodyTooLarge(const Outcome& outcome) {
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_FALSE(outcome.body);
  EXPECT_FALSE(outcome.response);
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->domain, "NSURLErrorDomain");
  EXPECT_EQ(outcome.error->code, kURLErrorDataLengthExceedsMaximum)
      << outcome.error->localizedDescription();
  EXPECT_EQ(outcome.error->localizedDescription(), "resource exceeds maximum size");
}

void expectSmallAnswer(const Outcome& outcome) {
  EXPECT_EQ(outcome.calls, 1);
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 200);
  ASSERT_TRUE(outcome.body);
  EXPECT_EQ(toString(*outcome.body), "small");
}

// Bytes that differ from their neighbours (251 is prime), so a lost, doubled or reordered piece
// shows.
std::string patternOf(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

// ---- Answers by framing ----------------------------------------------------------------------

enum class Framing { contentLength, chunked, untilClose };

// Every answer closes its connection: a kept-alive one would leave the server's handler waiting
// for a request that never comes, and the cap does not depend on connection reuse.
void sendAnswer(RawSocketServer::Connection& connection, Framing framing, std::string_view body) {
  switch (framing) {
    case Framing::contentLength:
      connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                      std::to_string(body.size()) + "\r\n\r\n");
      connection.send(body);
      return;
    case Framing::chunked: {
      connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n");
      for (std::size_t at = 0; at < body.size(); at += kChunkBytes) {
        const auto piece = body.substr(at, kChunkBytes);
        char size[32];
        std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
        connection.send(size);
        connection.send(piece);
        connection.send("\r\n");
      }
      connection.send("0\r\n\r\n");
      return;
    }
    case Framing::untilClose:
      connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
      connection.send(body);
      return;
  }
}

std::string pathOf(const std::string& head) {
  const auto start = head.find(' ');
  if (start == std::string::npos) return {};
  return head.substr(start + 1, head.find(' ', start + 1) - start - 1);
}

// Answers "/small" with five bytes and any other path with `body` in the given framing.
RawSocketServer::Handler serving(Framing framing, const std::string& body) {
  return [framing, &body](RawSocketServer::Connection& connection) {
    const std::string head = connection.readRequestHead();
    if (pathOf(head) == "/small") {
      connection.send(kSmallAnswer);
    } else if (!head.empty()) {
      sendAnswer(connection, framing, body);
    }
  };
}

struct BodyCase {
  std::string name;
  Framing framing;
  std::size_t bytes;
  friend void PrintTo(const BodyCase& c, std::ostream* os) { *os << c.name; }
};

class SessionBodyWithinCapTest : public ::testing::TestWithParam<BodyCase> {};

TEST_P(SessionBodyWithinCapTest, ArrivesWholeAndTheSessionGoesOn) {
  const std::string body = patternOf(GetParam().bytes);
  RawSocketServer server(serving(GetParam().framing, body));

  const Outcome outcome = send(requestFor(server.url("/body")));
  EXPECT_EQ(outcome.calls, 1);
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 200);
  ASSERT_TRUE(outcome.body);
  ASSERT_EQ(outcome.body->size(), body.size());
  EXPECT_TRUE(toString(*outcome.body) == body) << "the bytes differ from what was sent";

  expectSmallAnswer(send(requestFor(server.url("/small"))));
}

INSTANTIATE_TEST_SUITE_P(
    Framings, SessionBodyWithinCapTest,
    ::testing::Values(BodyCase{"DeclaredJustUnderCap", Framing::contentLength, kBodyCap - 1},
                      BodyCase{"DeclaredAtCap", Framing::contentLength, kBodyCap},
                      BodyCase{"ChunkedAtCap", Framing::chunked, kBodyCap},
                      BodyCase{"UntilCloseAtCap", Framing::untilClose, kBodyCap}),
    [](const auto& info) { return info.param.name; });

class SessionBodyOverCapTest : public ::testing::TestWithParam<BodyCase> {};

TEST_P(SessionBodyOverCapTest, FailsOnceAndTheSessionGoesOn) {
  const std::string body = patternOf(GetParam().bytes);
  RawSocketServer server(serving(GetParam().framing, body));

  expectBodyTooLarge(send(requestFor(server.url("/body"))));

  expectSmallAnswer(send(requestFor(server.url("/small"))));
}

INSTANTIATE_TEST_SUITE_P(
    Framings, SessionBodyOverCapTest,
    ::testing::Values(BodyCase{"DeclaredOneOverCap", Framing::contentLength, kBodyCap + 1},
                      BodyCase{"ChunkedOneOverCap", Framing::chunked, kBodyCap + 1},
                      BodyCase{"ChunkedFarOverCap", Framing::chunked, 3 * kBodyCap},
                      BodyCase{"UntilCloseOneOverCap", Framing::untilClose, kBodyCap + 1}),
    [](const auto& info) { return info.param.name; });

// ---- Declared sizes ----------------------------------------------------------------------------

// The peer declares 10 MB and then sends nothing: only a check of the declared size ends this
// before the request's time-out.
TEST(SessionBodyCapTest, DeclaredOversizeFailsBeforeAnyBodyArrives) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10485760\r\n\r\n");
    connection.waitForRelease();
  });
  expectBodyTooLarge(send(requestFor(server.url("/declared"))));
}

// A HEAD answer's Content-Length describes a body that never comes, so it may exceed the cap.
TEST(SessionBodyCapTest, HeadMayDeclareMoreThanTheCap) {
  RawSocketServer server([](RawSocketServer::Connection& connection) {
    connection.readRequestHead();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10485760\r\n\r\n");
  });
  auto request = requestFor(server.url("/resource"));
  request.httpMethod = "HEAD";
  const Outcome outcome = send(std::move(request));
  EXPECT_EQ(outcome.calls, 1);
  ASSERT_FALSE(outcome.error) << outcome.error->localizedDescription();
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 200);
  ASSERT_TRUE(outcome.body);
  EXPECT_TRUE(outcome.body->empty());
}

// ---- Many at once ------------------------------------------------------------------------------

// Oversize and small answers interleaved over several connections: the cap is per response, so
// each task gets its own outcome exactly once.
TEST(SessionBodyCapConcurrencyTest, ConcurrentOversizeAndSmallAnswersEachCompleteOnce) {
  constexpr int kTasks = 16;
  const std::string oversize = patternOf(kBodyCap + kChunkBytes);
  RawSocketServer server(serving(Framing::chunked, oversize));

  std::vector<std::shared_ptr<Outcome>> outcomes;
  for (int i = 0; i < kTasks; ++i) {
    outcomes.push_back(std::make_shared<Outcome>());
    const char* path = i % 2 == 0 ? "/body" : "/small";
    session().dataTask(requestFor(server.url(path)), recordInto(outcomes.back()));
  }
  ASSERT_TRUE(session().waitUntilIdle(kIdleLimit));

  for (int i = 0; i < kTasks; ++i) {
    SCOPED_TRACE("task " + std::to_string(i));
    if (i % 2 == 0) {
      expectBodyTooLarge(*outcomes[i]);
    } else {
      expectSmallAnswer(*outcomes[i]);
    }
  }
}

}  // namespace
}  // namespace platform
