// The OUTGOING dump shows the request's header fields as they stand: the Host field of an IPv6
// URL with its brackets, and custom fields named like the framing headers, joined by add rules.
#include <gtest/gtest.h>

#include "../../zelnora_core/src/APIServiceDetail.h"
#include "../../zelnora_core/src/TrafficLog.h"
#include "platform/Url.h"

namespace zelnora_core {
namespace {

TEST(DumpHeaders, ShowTheRequestsFieldsAsTheyStand) {
  const APIRequest record(APIEndpoint::sendAppTracking, HTTPMethod::post, std::nullopt,
                          std::nullopt, std::nullopt, platform::toBytes("{}"));
  const auto request = detail::makeURLRequest(
      record, *platform::Url::parse("http://[::1]:8080/tracker/app"), std::nullopt,
      std::map<std::string, std::string>{
          {"Host", "o.test"}, {"Content-Length", "9"}, {"Transfer-Encoding", "chunked"}});
  ASSERT_TRUE(request.has_value());
  const std::string dump = detail::outgoingText(*request);
  for (const char* line :
       {"\nHost: [::1],o.test \n", "\nContent-Length: 2,9 \n", "\nTransfer-Encoding: chunked \n"}) {
    EXPECT_NE(dump.find(line), std::string::npos) << line << " in\n" << dump;
  }
}

}  // namespace
}  // namespace zelnora_core
