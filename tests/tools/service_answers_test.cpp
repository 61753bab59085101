// The reference service sends short answers as they are even to a client that accepts
// compression: brotli made the 15-byte tracking answer longer and held every durable batch back.
#include <gtest/gtest.h>
#include <httplib.h>

#include "ReferenceService.h"

namespace zelnora_tools {
namespace {

TEST(ServiceAnswers, ShortAnswersGoUncompressedToAClientThatAcceptsCompression) {
  ReferenceService service(ReferenceServiceOptions{});
  httplib::Client client("127.0.0.1", service.start());
  client.set_decompress(false);  // the bytes as they came
  const auto result = client.Post("/tracker/app", {{"Accept-Encoding", "gzip, deflate, br"}},
                                  R"({"events":[{"event":"r0"}]})", "application/json");
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->has_header("Content-Encoding"));
  EXPECT_EQ(result->body, R"({"status":"ok"})");
}

}  // namespace
}  // namespace zelnora_tools
