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

int codeOfGet(const std::string& url) {  // the error's code, 0 for success
  auto code = std::make_shared<int>(-1);
  urlSession().dataTask(URLRequest(*Url::parse(url)),
                        [code](auto, auto, auto error) { *code = error ? error->code : 0; });
  EXPECT_TRUE(urlSession().waitUntilIdle(std::chrono::seconds(60)));
  return *code;
}

TEST(SessionLimits, SixteenRedirectsAreFollowedAndTheSeventeenthFails) {
  test_support::RecordingServer server(
      [](const httplib::Request& request, auto& response) {
        const int left = std::stoi(request.path.substr(5));  // "/hop/N": N redirects to go
        if (left > 0) return response.set_redirect("/hop/" + std::to_string(left - 1), 302);
        response.set_content("landed", "text/plain");
      },
      false);
  for (const auto& [hops, code] : {std::pair{16, 0}, {17, -1007}}) {
    server.clear();
    EXPECT_EQ(codeOfGet(server.url("/hop/" + std::to_string(hops))), code) << hops << " redirects";
    EXPECT_EQ(server.received().size(), 17u) << "the 17th redirect is not followed";
  }
}

TEST(SessionLimits, HeaderBlockOfExactlyTheGuardIsAccepted) {
  const URLSessionLimits defaults = urlSessionLimits();
  EXPECT_EQ(std::pair(defaults.maximumBodyBytes >> 20, defaults.maximumHeaderBytes >> 10),
            std::pair(std::size_t{256}, std::size_t{256}))
      << "MiB, KiB";
  constexpr std::size_t kGuard = 4096;
  setURLSessionLimits({defaults.maximumBodyBytes, kGuard});
  for (const std::size_t blockBytes : {kGuard, kGuard + 1}) {
    std::string block = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX-Pad: ";
    block += std::string(blockBytes - block.size() - 4, 'p') + "\r\n\r\n";
    test_support::RawSocketServer server([&block](test_support::RawSocketServer::Connection& c) {
      c.readRequestHead();
      c.send(block);
    });
    EXPECT_EQ(codeOfGet(server.url("/")), blockBytes > kGuard ? -1011 : 0)
        << blockBytes << "-byte header block";
  }
  setURLSessionLimits(defaults);
}

}  // namespace
}  // namespace platform
