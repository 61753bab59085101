// The reference service: its routing and registry (pure), then the live server on loopback.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include "ReferenceService.h"

namespace zelnora_tools {
namespace {

using namespace std::chrono_literals;

constexpr const char* kRegistry = R"({"keys": {
  "demo-key": {"nt": "apns", "nai": "demo-app", "k": false},
  "killed":   {"nt": "apns", "nai": "demo-app", "k": true},
  "boom":     {"status": 500},
  "junk":     {"body": "not json"},
  "teapot":   {"status": 418, "body": "short and stout"}}})";

KeyRegistry testRegistry() {
  std::string error;
  auto registry = KeyRegistry::fromJson(kRegistry, &error);
  EXPECT_TRUE(registry) << error;
  return registry.value_or(KeyRegistry{});
}

RecordedRequest requestOf(std::string method, std::string path) {
  RecordedRequest request;
  request.method = std::move(method);
  request.path = std::move(path);
  return request;
}

TEST(ReferenceServiceRoutingTest, AnswersEachPathAsTheServiceDoes) {
  struct Case {
    std::string method, path;
    int status;
    std::string body;  // empty: not checked
  };
  const Case cases[] = {
      {"GET", "/config/demo-key", 200, R"({"k":false,"nai":"demo-app","nt":"apns"})"},
      {"GET", "/config/killed", 200, R"({"k":true,"nai":"demo-app","nt":"apns"})"},
      {"GET", "/config/boom", 500, "{}"},
      {"GET", "/config/junk", 200, "not json"},
      {"GET", "/config/teapot", 418, "short and stout"},
      {"GET", "/config/unknown", 401, R"({"error":"unknown application key"})"},
      {"GET", "/config/", 404, ""},
      {"POST", "/config/demo-key", 405, ""},
      {"POST", "/tracker/app", 200, R"({"status":"ok"})"},
      {"POST", "/tracker", 200, R"({"status":"ok"})"},
      {"POST", "/tracker/quiz", 200, R"({"status":"ok"})"},
      {"GET", "/tracker/app", 405, ""},
      {"GET", "/campaign/v3/42", 200, R"({"zoneId":"42","campaigns":[]})"},
      {"GET", "/campaign/v3/", 404, ""},
      {"POST", "/v2/register", 200, R"({"status":"ok"})"},
      {"DELETE", "/v1/unregister", 200, R"({"status":"ok"})"},
      {"PUT", "/v1/device/callback", 200, R"({"status":"ok"})"},
      {"GET", "/tracker/app/extra", 404, ""},
      {"GET", "/", 404, ""},
  };
  KeyRegistry registry = testRegistry();
  for (const auto& c : cases) {
    ServiceAnswer answer = answerRequest(requestOf(c.method, c.path), registry);
    EXPECT_EQ(answer.status, c.status) << c.method << " " << c.path;
    if (!c.body.empty()) {
      EXPECT_EQ(answer.body, c.body) << c.method << " " << c.path;
    }
    EXPECT_EQ(answer.contentType, "application/json");
  }
}

TEST(KeyRegistryTest, RejectsMalformedRegistries) {
  const char* malformed[] = {
      "",
      "[]",
      R"({"nokeys": {}})",
      R"({"keys": []})",
      R"({"keys": {"a": "b"}})",
      R"({"keys": {"a": {"status": "500"}}})",
      R"({"keys": {"a": {"status": 99}}})",
      R"({"keys": {"a": {"status": 500.5}}})",
      R"({"keys": {"a": {"body": 1}}})",
  };
  for (const char* text : malformed) {
    std::string error;
    EXPECT_FALSE(KeyRegistry::fromJson(text, &error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

TEST(KeyRegistryTest, DemoKeyAnswersAUsableConfiguration) {
  KeyRegistry registry = KeyRegistry::withDemoKey("k1");
  EXPECT_EQ(registry.answerFor("k1"),
            (KeyAnswer{200, R"({"nt":"apns","nai":"demo-app","k":false})"}));
  EXPECT_EQ(registry.answerFor("k2").status, 401);
}

TEST(RecordedRequestTest, JsonLineKeepsEveryPartAndHeaderOrder) {
  RecordedRequest request = requestOf("POST", "/tracker/app");
  request.query = "a=1&b=%20";
  request.headers = {{"X-B", "2"}, {"X-A", "1"}, {"X-A", "again"}};
  request.body = "{\"events\":[{\"k\":\"v/w\"}]}\n";
  auto line = nlohmann::json::parse(request.toJsonLine());
  EXPECT_EQ(line["method"], "POST");
  EXPECT_EQ(line["path"], "/tracker/app");
  EXPECT_EQ(line["query"], "a=1&b=%20");
  EXPECT_EQ(line["headers"], nlohmann::json::parse(R"([["X-B","2"],["X-A","1"],["X-A","again"]])"));
  EXPECT_EQ(line["body"], request.body);
  EXPECT_EQ(request.toJsonLine().find('\n'), std::string::npos);
  EXPECT_EQ(request.header("x-a"), "1");
  EXPECT_EQ(request.header("X-C"), std::nullopt);
}

TEST(RecordedRequestTest, BodyThatIsNotUtf8StillMakesOneLine) {
  RecordedRequest request = requestOf("POST", "/tracker");
  request.body = std::string("\xff\xfe ok", 5);
  auto line = nlohmann::json::parse(request.toJsonLine());
  EXPECT_EQ(line["body"], "\xEF\xBF\xBD\xEF\xBF\xBD ok");
}

class LiveReferenceServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    logPath_ = std::filesystem::temp_directory_path() /
               ("zelnora-service-log-" + std::to_string(::getpid()) + ".jsonl");
    std::filesystem::remove(logPath_);
    ReferenceServiceOptions options;
    options.registry = testRegistry();
    options.requestLogPath = logPath_.string();
    options.maxBodyBytes = 1024;
    service_ = std::make_unique<ReferenceService>(std::move(options));
    port_ = service_->start();
    ASSERT_GT(port_, 0);
  }
  void TearDown() override {
    service_.reset();
    std::filesystem::remove(logPath_);
  }

  httplib::Client client() { return httplib::Client("127.0.0.1", port_); }

  std::filesystem::path logPath_;
  std::unique_ptr<ReferenceService> service_;
  int port_ = -1;
};

TEST_F(LiveReferenceServiceTest, RecordsWhatArrivedOnTheWire) {
  auto cli = client();
  httplib::Headers headers{{"X-ZELNORA-CHANNEL-UUID", "demo-key"}, {"Accept", "*/*,text/plain"}};
  auto result =
      cli.Post("/tracker/app?x=1&y=%2F", headers, R"({"events":[{}]})", "application/json");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, R"({"status":"ok"})");

  ASSERT_TRUE(service_->waitForRequests(1, 10s));
  auto received = service_->received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].method, "POST");
  EXPECT_EQ(received[0].path, "/tracker/app");
  EXPECT_EQ(received[0].query, "x=1&y=%2F");
  EXPECT_EQ(received[0].body, R"({"events":[{}]})");
  EXPECT_EQ(received[0].header("x-zelnora-channel-uuid"), "demo-key");
  EXPECT_EQ(received[0].header("Accept"), "*/*,text/plain");
  EXPECT_EQ(received[0].header("Content-Type"), "application/json");
  EXPECT_EQ(received[0].header("REMOTE_ADDR"), std::nullopt);
  EXPECT_EQ(received[0].header("LOCAL_PORT"), std::nullopt);
}

TEST_F(LiveReferenceServiceTest, ConfigurationEndpointAnswersPerKey) {
  auto cli = client();
  auto known = cli.Get("/config/demo-key");
  ASSERT_TRUE(known);
  EXPECT_EQ(known->status, 200);
  EXPECT_EQ(nlohmann::json::parse(known->body),
            nlohmann::json::parse(R"({"nt":"apns","nai":"demo-app","k":false})"));
  EXPECT_EQ(known->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(cli.Get("/config/nobody")->status, 401);
  EXPECT_EQ(cli.Get("/config/boom")->status, 500);
  EXPECT_EQ(cli.Get("/config/junk")->body, "not json");

  service_->setKeyAnswer("nobody", KeyAnswer{200, R"({"nt":"x","nai":"y"})"});
  EXPECT_EQ(cli.Get("/config/nobody")->status, 200);
}

TEST_F(LiveReferenceServiceTest, EveryRequestGoesToTheLogFileAsOneLine) {
  auto cli = client();
  ASSERT_TRUE(cli.Get("/config/demo-key"));
  ASSERT_TRUE(cli.Post("/tracker", "line\nbreak", "text/plain"));
  ASSERT_TRUE(cli.Get("/no/such/path"));
  ASSERT_TRUE(service_->waitForRequests(3, 10s));

  std::ifstream log(logPath_);
  std::vector<nlohmann::json> lines;
  for (std::string line; std::getline(log, line);) lines.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["path"], "/config/demo-key");
  EXPECT_EQ(lines[1]["body"], "line\nbreak");
  EXPECT_EQ(lines[2]["path"], "/no/such/path");
}

TEST_F(LiveReferenceServiceTest, RefusesBodiesAboveTheLimit) {
  auto cli = client();
  auto refused = cli.Post("/tracker/app", std::string(2048, 'x'), "application/json");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 413);
  auto accepted = cli.Post("/tracker/app", std::string(1024, 'x'), "application/json");
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->status, 200);
  ASSERT_TRUE(service_->waitForRequests(1, 10s));
  EXPECT_EQ(service_->received().back().body.size(), 1024u);
}

TEST_F(LiveReferenceServiceTest, WaitForRequestsGivesUpAfterItsLimit) {
  EXPECT_FALSE(service_->waitForRequests(1, 50ms));
  EXPECT_TRUE(service_->waitForRequests(0, 0ms));
}

TEST_F(LiveReferenceServiceTest, ConcurrentClientsAreAllRecorded) {
  constexpr int kClients = 8;
  constexpr int kRequestsEach = 10;
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([this, c] {
      auto cli = client();
      for (int i = 0; i < kRequestsEach; ++i) {
        cli.Post("/tracker/app", std::to_string(c) + ":" + std::to_string(i), "text/plain");
      }
    });
  }
  for (auto& thread : clients) thread.join();
  ASSERT_TRUE(service_->waitForRequests(kClients * kRequestsEach, 10s));
  auto received = service_->received();
  ASSERT_EQ(received.size(), static_cast<std::size_t>(kClients * kRequestsEach));
  std::set<std::string> bodies;
  for (const auto& request : received) bodies.insert(request.body);
  EXPECT_EQ(bodies.size(), received.size());
}

TEST(ReferenceServiceLifecycleTest, StopIsIdempotentAndFreesThePort) {
  ReferenceService first(ReferenceServiceOptions{});
  int port = first.start();
  ASSERT_GT(port, 0);
  EXPECT_EQ(first.baseUrl(), "http://127.0.0.1:" + std::to_string(port));
  EXPECT_EQ(first.start(), -1);  // already started

  ReferenceServiceOptions samePort;
  samePort.port = port;
  ReferenceService second(samePort);
  EXPECT_EQ(second.start(), -1);  // the port is taken

  first.stop();
  first.stop();
  ReferenceService third(samePort);
  EXPECT_EQ(third.start(), port);
  httplib::Client cli("127.0.0.1", port);
  EXPECT_EQ(cli.Get("/config/demo-key")->status, 401);
}

}  // namespace
}  // namespace zelnora_tools
