// The report body JSON (what the service receives, byte for byte), its strict decoding, and the
// request record the core factory builds around it.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "zelnora_core/ZACoreApiFactory.h"
#include "zelnora_core/ZAReportRequest.h"

namespace zelnora_core {
namespace {

std::string json(const ZAReportRequest& request) { return platform::toString(request.toJson()); }

TEST(ReportRequestJson, IsCompactWithSlashesEscapedAndOneObjectPerEvent) {
  ZAReportRequest one{{{{"model", "iPhone 15"}, {"url", "https://a/b"}, {"z", ""}}}};
  EXPECT_EQ(json(one), R"({"events":[{"model":"iPhone 15","url":"https:\/\/a\/b","z":""}]})");

  EXPECT_EQ(json(ZAReportRequest{}), R"({"events":[]})");
  EXPECT_EQ(json(ZAReportRequest{{{{"a", "1"}}, {}}}), R"({"events":[{"a":"1"},{}]})");
}

TEST(ReportRequestJson, EscapesLikeThePhonesEncoder) {
  ZAReportRequest request{{{{"k\"ey", "q\" b\\ \b\f\n\r\t \x01\x1f \x7f \u00e9 \u2028"}}}};
  EXPECT_EQ(json(request),
            "{\"events\":[{\"k\\\"ey\":\"q\\\" b\\\\ \\b\\f\\n\\r\\t \\u0001\\u001f \x7f \u00e9 "
            "\u2028\"}]}");
}

TEST(ReportRequestJson, DecodesWhatItEncodes) {
  ZAReportRequest request{{{{"a/b", "c\"d"}, {"e", "\u00fc\n"}}, {{"x", "y"}}}};
  EXPECT_EQ(ZAReportRequest::fromJson(request.toJson()), request);
}

TEST(ReportRequestJson, DecodingIsStrict) {
  for (const char* text : {
           R"({})",
           R"({"event":[]})",
           R"({"events":null})",
           R"({"events":{}})",
           R"({"events":[1]})",
           R"({"events":[{"a":1}]})",
           R"({"events":[{"a":null}]})",
           R"({"events":[{"a":"b"}]} x)",
           R"([{"events":[]}])",
           "",
       }) {
    EXPECT_EQ(ZAReportRequest::fromJson(platform::toBytes(text)), std::nullopt) << text;
  }
  auto withExtra = ZAReportRequest::fromJson(platform::toBytes(R"({"x":1,"events":[{"a":"b"}]})"));
  ASSERT_TRUE(withExtra.has_value());
  EXPECT_EQ(withExtra->events, (std::vector<std::map<std::string, std::string>>{{{"a", "b"}}}));
}

TEST(CoreApiFactory, BuildsAnAppTrackingPostWithTheReportAsItsOnlyContent) {
  for (const ZAReportRequest& report :
       {ZAReportRequest{{{{"event", "open"}, {"t", "x/y"}}}}, ZAReportRequest{}}) {
    APIRequest request = ZACoreApiFactory::sendAppTrackerRequest(report);
    EXPECT_EQ(request.endpoint(), APIEndpoint::sendAppTracking);
    EXPECT_EQ(request.method(), HTTPMethod::post);
    EXPECT_FALSE(request.path().has_value());
    EXPECT_FALSE(request.parameters().has_value());
    EXPECT_FALSE(request.headers().has_value());
    ASSERT_TRUE(request.body().has_value());
    EXPECT_EQ(*request.body(), report.toJson());
    EXPECT_EQ(ZAReportRequest::fromJson(*request.body()), report);
  }
}

}  // namespace
}  // namespace zelnora_core
