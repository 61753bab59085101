// The reference service keeps answering while slow clients hold connections open, stopped
// half-way through a request head (the server library's 8 workers and 5 s read time-out made a
// normal request wait 10 s behind 16 of them).
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

#include "ReferenceService.h"

namespace zelnora_tools {
namespace {

TEST(ServiceIdleClients, RequestIsAnsweredWhileSixteenConnectionsDawdle) {
  ReferenceService service(ReferenceServiceOptions{});
  const int port = service.start();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  std::vector<int> dawdlers;
  for (int i = 0; i < 16; ++i) {
    dawdlers.push_back(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(::connect(dawdlers.back(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::send(dawdlers.back(), "POST /tracker HT", 16, 0), 16);  // half a request head
  }
  auto status = std::async(std::launch::async, [port] {
    const auto result = httplib::Client("127.0.0.1", port).Post("/tracker/app", "{}", "text/plain");
    return result ? result->status : -1;
  });
  ASSERT_EQ(status.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_EQ(status.get(), 200);
  for (const int fd : dawdlers) ::close(fd);
}

}  // namespace
}  // namespace zelnora_tools
