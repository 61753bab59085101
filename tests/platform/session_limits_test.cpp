// The URL session's documented limits, each at its exact edge: 16 redirects followed and the 17th
// refused, a header block of exactly the guard accepted and one byte more refused, and the
// guards' documented defaults.
#include <gtest/gtest.h>

#include "platform/Services.h"
#include "platform/UrlSession.h"
#include "support/RawSocketServer.h"
#include "support/RecordingServer.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

std::optional<Error> errorOfGet(const std::string& url) {
  auto error = std::make_shared<std::optional<Error>>();
  urlSession().dataTask(URLRequest(*Url::parse(url)),
                        [error](auto, auto, std::optional<Error> e) { *error = std::move(e); });
  EXPECT_TRUE(urlSession().waitUntilIdle(60s));
  return *error;
}

TEST(SessionLimits, SixteenRedirectsAreFollowedAndTheSeventeenthFails) {
  test_support::RecordingServer server(
      [](const httplib::Request& request, auto& response) {
        const int left = std::stoi(request.path.substr(5));  // "/hop/N": N redirects to go
        if (left > 0) return response.set_redirect("/hop/" + std::to_string(left - 1), 302);
        response.set_content("landed", "text/plain");
      },
      false);
  for (const auto& [hops, code] : {std::pair{16, 0}, {17, kURLErrorHTTPTooManyRedirects}}) {
    server.clear();
    const std::optional<Error> error = errorOfGet(server.url("/hop/" + std::to_string(hops)));
    EXPECT_EQ(error.value_or(Error{}).code, code) << hops << " redirects";
    EXPECT_EQ(server.received().size(), 17u) << "the 17th redirect is not followed";
  }
}

TEST(SessionLimits, HeaderBlockOfExactlyTheGuardIsAccepted) {
  const URLSessionLimits defaults = urlSessionLimits();
  EXPECT_EQ(defaults.maximumBodyBytes, std::size_t{256} << 20);
  EXPECT_EQ(defaults.maximumHeaderBytes, std::size_t{256} << 10);
  constexpr std::size_t kGuard = 4096;
  setURLSessionLimits({defaults.maximumBodyBytes, kGuard});
  for (const std::size_t blockBytes : {kGuard, kGuard + 1}) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX-Pad: ";
    const std::string block = head + std::string(blockBytes - head.size() - 4, 'p') + "\r\n\r\n";
    test_support::RawSocketServer server([&block](test_support::RawSocketServer::Connection& c) {
      c.readRequestHead();
      c.send(block);
    });
    const std::optional<Error> error = errorOfGet(server.url("/"));
    EXPECT_EQ(error.value_or(Error{}).code, blockBytes > kGuard ? kURLErrorBadServerResponse : 0)
        << blockBytes << "-byte header block";
  }
  setURLSessionLimits(defaults);
}

}  // namespace
}  // namespace platform
