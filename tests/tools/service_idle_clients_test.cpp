// The reference service keeps answering while slow clients hold connections open,
// stopped half-way through a request head.
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

#include "ReferenceService.h"
#include "support/LoopbackSocket.h"

namespace zelnora_tools {
namespace {

int connectTo(int port, std::string_view firstBytes) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(::send(fd, firstBytes.data(), firstBytes.size(), 0), std::ssize(firstBytes));
  return fd;
}

TEST(ServiceIdleClients, RequestIsAnsweredWhileSixteenConnectionsDawdle) {
  ReferenceService service(ReferenceServiceOptions{});
  const int port = service.start();
  ASSERT_GT(port, 0);
  std::vector<int> idle;
  for (int i = 0; i < 16; ++i) idle.push_back(connectTo(port, "POST /tracker HT"));
  auto answer = std::async(std::launch::async, [port] {
    httplib::Client client("127.0.0.1", port);
    const auto result = client.Post("/tracker/app", "{}", "application/json");
    return result ? result->status : -1;
  });
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_EQ(answer.get(), 200);
  for (const int fd : idle) ::close(fd);
}

}  // namespace
}  // namespace zelnora_tools
