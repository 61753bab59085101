// The reference service's inspector: the report check's verdicts, and the registry and outage
// changes it accepts and refuses over HTTP. The page itself (live updates, kill switch, outage,
// escaping, a stop with pages open) is driven in tests/browser.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

#include "ReferenceService.h"
#include "ReportCheck.h"

namespace zelnora_tools {
namespace {

using Problems = std::vector<std::string>;

// An event as the kit sends it, with `extra` members after "model" (a repeated name: the later
// wins).
std::string kitEvent(const std::string& extra = "", const std::string& date = "1700000000123") {
  return R"j({"deviceId":"F018145F-6EB4-4FD8-8BFC-517F4DCA0C49","sdkVersion":"2.3.0(41)",)j"
         R"j("brand":"Apple","hardware":"A17 Pro","manufacturer":"Apple","model":"iPhone 15 Pro")j" +
         extra + R"(,"eventDate":")" + date + R"(","event":"app_open","t":"push"})";
}
std::string report(const std::string& extra = "", const std::string& date = "1700000000123") {
  return R"({"events":[)" + kitEvent(extra, date) + "]}";
}

TEST(ReportCheck, FlagsWhatTheServiceDoesNotExpect) {
  const struct {
    const char* what;
    std::string body;
    Problems expected;
  } cases[] = {
      {"as the kit sends it", report(), {}},
      {"not JSON", "{\"events\":", {"the body is not JSON"}},
      {"no events list", R"({"event":[]})", {"the body has no \"events\" list"}},
      {"empty list", R"({"events":[]})", {"the \"events\" list is empty"}},
      {"event not an object", R"({"events":["app_open"]})", {"event 1: is not an object"}},
      {"seconds for milliseconds",
       report("", "1700000000"),
       {"event 1: \"eventDate\" is not milliseconds since 1970"}},
      {"lower-case vendor id",
       report(R"(,"deviceId":"f018145f-6eb4-4fd8-8bfc-517f4dca0c49")"),
       {"event 1: \"deviceId\" is not an upper-case UUID"}},
      {"version without build",
       report(R"(,"sdkVersion":"2.3.0")"),
       {"event 1: \"sdkVersion\" is not VERSION(BUILD)"}},
      {"number value and stray member",
       report(R"(,"battery":85,"colour":"red")"),
       {"event 1: \"battery\" is not a string", "event 1: unexpected member \"colour\""}},
      {"missing model, second event",
       R"({"events":[)" + kitEvent() +
           R"(,{"brand":"Apple","hardware":"x","manufacturer":"Apple","eventDate":"1700000000123"}],"extra":1})",
       {"event 2: \"model\" is missing", "unexpected member \"extra\""}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(reportProblems(c.body), c.expected) << c.what;
  }
}

class InspectorRoutes : public testing::Test {
 protected:
  void SetUp() override {
    ReferenceServiceOptions options;
    options.registry = *KeyRegistry::fromJson(
        R"({"keys":{"demo-key":{"nt":"apns","nai":"demo-app","k":false},"junk":{"body":"not json"}}})");
    options.inspector = true;
    service_ = std::make_unique<ReferenceService>(std::move(options));
    ASSERT_GT(service_->start(), 0);
  }

  httplib::Result post(const std::string& path, const std::string& body,
                       const char* type = "application/json") {
    return client().Post(path, body, type);
  }
  httplib::Client client() const { return httplib::Client("127.0.0.1", service_->port()); }
  std::string demoKeyAnswer() const { return client().Get("/config/demo-key")->body; }

  std::unique_ptr<ReferenceService> service_;
};

TEST_F(InspectorRoutes, RefusedChangesChangeNothing) {
  const std::string before = demoKeyAnswer();
  const struct {
    const char* path;
    const char* body;
    const char* type;
    int status;
  } refusals[] = {
      {"/inspector/registry", R"({"key":"demo-key","killSwitch":true})", "text/plain", 415},
      {"/inspector/registry", R"({"key":"demo-key","killSwitch":tru)", "application/json", 400},
      {"/inspector/registry", R"({"key":"nobody","killSwitch":true})", "application/json", 400},
      {"/inspector/registry", R"({"key":"demo-key","status":700})", "application/json", 400},
      {"/inspector/registry", R"({"key":"demo-key","killSwitch":"yes"})", "application/json", 400},
      {"/inspector/registry", R"({"key":"junk","killSwitch":true})", "application/json", 400},
      {"/inspector/outage", R"({"failNext":-1})", "application/json", 400},
      {"/inspector/outage", R"({"failnext":1})", "application/json", 400},
      {"/inspector/outage", R"({"failNext":1,"failStatus":99})", "application/json", 400},
      {"/inspector/outage", R"({"failNext":1,"retryAfterSeconds":"soon"})", "application/json",
       400},
  };
  for (const auto& r : refusals) {
    EXPECT_EQ(post(r.path, r.body, r.type)->status, r.status) << r.body;
  }
  EXPECT_EQ(demoKeyAnswer(), before);
  EXPECT_EQ(post("/tracker/app", "{}")->status, 200) << "no outage was staged";
  EXPECT_EQ(service_->outage().failNext, 0U);
}

TEST_F(InspectorRoutes, AnswersOnlyToLoopbackNames) {
  const httplib::Headers rebound{{"Host", "rebound.example:" + std::to_string(service_->port())}};
  EXPECT_EQ(client().Get("/inspector/received.jsonl", rebound)->status, 403);
  EXPECT_EQ(client()
                .Post("/inspector/registry", rebound, R"({"key":"demo-key","status":500})",
                      "application/json")
                ->status,
            403);
  EXPECT_EQ(client().Get("/", {{"Host", "LocalHost:1"}})->status, 200);
  EXPECT_EQ(client().Get("/config/demo-key", rebound)->status, 200) << "unchanged, any name";
}

}  // namespace
}  // namespace zelnora_tools
