// The OUTGOING dump shows the request's header fields as they stand: the Host field of an IPv6
// URL with its brackets, and custom fields named like the framing headers, joined by add rules.
#include <gtest/gtest.h>

#include "KitInternals.h"

namespace zelnora_core {
namespace {

TEST(DumpHeaders, ShowTheRequestsFieldsAsTheyStand) {
  const struct {
    const char* url;
    std::map<std::string, std::string> custom;
    std::vector<const char*> lines;
  } cases[] = {
      {"http://[::1]:8080/tracker/app", {}, {"\nHost: [::1] \n"}},
      {"http://h.test/tracker/app",
       {{"Host", "other.test"}, {"Content-Length", "9"}, {"Transfer-Encoding", "chunked"}},
       {"\nHost: h.test,other.test \n", "\nContent-Length: 2,9 \n",
        "\nTransfer-Encoding: chunked \n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url);
    const APIRequest record(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt,
                            std::nullopt, std::nullopt, platform::toBytes("{}"));
    const auto request =
        detail::makeURLRequest(record, *platform::Url::parse(c.url), std::nullopt, c.custom);
    ASSERT_TRUE(request.has_value());
    const std::string dump = detail::outgoingText(*request);
    for (const char* line : c.lines) EXPECT_NE(dump.find(line), std::string::npos) << dump;
  }
}

}  // namespace
}  // namespace zelnora_core
