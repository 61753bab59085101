// The real zelnora-host program, run as a child process against an in-process reference service.
// Each test has its own host bundle and its own XDG_DATA_HOME, so runs never share stored state
// unless a test means them to (the kill switch across processes).
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ChildProcess.h"
#include "HostBundle.h"
#include "ReferenceService.h"
#include "support/TempDirectory.h"

namespace zelnora_tools {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using zelnora_tools_testing::ChildOptions;
using zelnora_tools_testing::ChildResult;

constexpr const char* kRegistry = R"({"keys": {
  "demo-key": {"nt": "apns", "nai": "demo-app"},
  "killed":   {"nt": "apns", "nai": "demo-app", "k": true},
  "boom":     {"status": 500},
  "junk":     {"body": "not json"}}})";

std::string hostProgram() { return zelnora_tools_testing::toolsDirectory() + "/host/zelnora-host"; }

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    result.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return result;
}

std::vector<std::string> linesStartingWith(const std::string& text, const std::string& prefix) {
  std::vector<std::string> found;
  for (auto& line : lines(text)) {
    if (line.starts_with(prefix)) found.push_back(line);
  }
  return found;
}

class HostProcessTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::exists(hostProgram())) << hostProgram() << " is not built";
    ReferenceServiceOptions options;
    options.registry = *KeyRegistry::fromJson(kRegistry);
    service_ = std::make_unique<ReferenceService>(std::move(options));
    ASSERT_GT(service_->start(), 0);
    bundle_ = scratch_.subdirectory("bundle");
    data_ = scratch_.subdirectory("data");
    ASSERT_TRUE(zelnora_host::writeHostBundle(
        bundle_, zelnora_host::settingsForService(service_->baseUrl())));
  }

  // One host process: `--bundle` and then each command line as one argument.
  ChildResult runHost(const std::vector<std::string>& commands, ChildOptions options = {}) {
    std::vector<std::string> arguments{"--bundle", bundle_};
    arguments.insert(arguments.end(), commands.begin(), commands.end());
    options.environment.emplace("XDG_DATA_HOME", data_);
    options.environment.emplace("ZELNORA_SIM_ADVERTISING_ID", std::nullopt);
    return zelnora_tools_testing::runChild(hostProgram(), arguments, options);
  }

  std::vector<RecordedRequest> receivedOn(const std::string& path) const {
    std::vector<RecordedRequest> found;
    for (auto& request : service_->received()) {
      if (request.path == path) found.push_back(request);
    }
    return found;
  }

  test_support::TempDirectory scratch_;
  std::string bundle_;
  std::string data_;
  std::unique_ptr<ReferenceService> service_;
};

TEST_F(HostProcessTest, InitializeWithAKnownKeyRunsTheCallback) {
  ChildResult run = runHost({"initialize demo-key", "wait", "state"});
  EXPECT_TRUE(run.exitedNormally);
  EXPECT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_THAT(run.standardOutput, HasSubstr("SDK initialized successfully\n"));
  EXPECT_THAT(run.standardOutput, HasSubstr("host: callback\n"));
  EXPECT_THAT(run.standardOutput,
              HasSubstr("host: state initialized=true debug=false disabled=false\n"));

  auto fetches = receivedOn("/config/demo-key");
  ASSERT_EQ(fetches.size(), 1u);
  EXPECT_EQ(fetches[0].method, "GET");
  EXPECT_EQ(fetches[0].header("Accept"), "application/json");
  EXPECT_EQ(fetches[0].header("X-ZELNORA-CHANNEL-UUID"), std::nullopt);
}

TEST_F(HostProcessTest, ConfigurationFailuresPrintTheirLineAndLeaveTheKitUninitialized) {
  struct Case {
    const char* key;
    const char* message;
  };
  const Case cases[] = {
      {"unknown-key", "Application key invalid\n"},
      {"boom", "Error getting configuration\n"},
      {"junk", "Error getting configuration\n"},
  };
  for (const auto& c : cases) {
    ChildResult run = runHost({std::string("initialize ") + c.key, "wait", "state"});
    EXPECT_EQ(run.exitStatus, 0) << c.key;
    EXPECT_THAT(run.standardOutput, HasSubstr(c.message)) << c.key;
    EXPECT_THAT(run.standardOutput, Not(HasSubstr("host: callback"))) << c.key;
    EXPECT_THAT(run.standardOutput,
                HasSubstr("host: state initialized=false debug=false disabled=false"))
        << c.key;
  }
}

TEST_F(HostProcessTest, KillSwitchStoredByOneProcessDisablesTheNextUntilDebugStartUp) {
  ChildResult first = runHost({"initialize killed", "wait", "state"});
  EXPECT_THAT(first.standardOutput, HasSubstr("SDK initialized successfully"));
  EXPECT_THAT(first.standardOutput, HasSubstr("host: state initialized=true debug=false"));
  ASSERT_EQ(receivedOn("/config/killed").size(), 1u);

  ChildResult second = runHost({"initialize killed", "wait", "state", "set-user-id u"});
  EXPECT_THAT(second.standardOutput, HasSubstr("Zelnora Ads sdk disabled\n"));
  EXPECT_THAT(second.standardOutput,
              HasSubstr("host: state initialized=false debug=false disabled=true\n"));
  EXPECT_THAT(second.standardOutput, HasSubstr("Sdk was not initialized\n"));
  EXPECT_THAT(second.standardOutput, Not(HasSubstr("host: callback")));
  EXPECT_EQ(receivedOn("/config/killed").size(), 1u) << "a disabled kit sends nothing";

  ChildResult debug = runHost({"initialize killed debug=true", "wait", "state"});
  EXPECT_THAT(debug.standardOutput, HasSubstr("SDK initialized successfully"));
  EXPECT_THAT(debug.standardOutput, HasSubstr("host: callback"));
  EXPECT_THAT(debug.standardOutput,
              HasSubstr("host: state initialized=true debug=true disabled=false\n"));
  EXPECT_EQ(receivedOn("/config/killed").size(), 2u);
}

TEST_F(HostProcessTest, MissingConfigurationPlistEndsTheProcess) {
  std::filesystem::remove(bundle_ + "/ZelnoraAdsConfig.plist");
  ChildResult run = runHost({"initialize demo-key", "state"});
  EXPECT_FALSE(run.exitedNormally);
  EXPECT_EQ(run.terminatingSignal, SIGABRT);
  EXPECT_THAT(run.standardError, HasSubstr("Fatal error: ZelnoraAdsConfig plist not found\n"));
  EXPECT_THAT(run.standardOutput, Not(HasSubstr("host: state")));
  EXPECT_TRUE(service_->received().empty());
}

TEST_F(HostProcessTest, PreferencesWrittenDirectlyAreListedWithTheirTypesAcrossProcesses) {
  ChildResult write = runHost({
      "set-pref b.string string \"two words\"",
      "set-pref a.data data raw-bytes",
      R"(set-pref c.dict dictionary "{\"X-One\":\"1\",\"path\":\"a/b\"}")",
      "set-pref gone string soon",
      "remove-pref gone",
      "prefs",
  });
  EXPECT_EQ(write.exitStatus, 0) << write.standardOutput;
  std::vector<std::string> expected{
      "host: pref a.data data raw-bytes",
      "host: pref b.string string two words",
      R"(host: pref c.dict dictionary {"X-One":"1","path":"a\/b"})",
  };
  EXPECT_EQ(linesStartingWith(write.standardOutput, "host: pref "), expected);

  ChildResult read = runHost({"prefs"});
  EXPECT_EQ(linesStartingWith(read.standardOutput, "host: pref "), expected);
}

TEST_F(HostProcessTest, StartUpStoresTheConfigurationsTheKitReadsLater) {
  ChildResult run = runHost({"initialize demo-key", "wait", "set-custom-headers X-A=1", "prefs"});
  auto prefs = linesStartingWith(run.standardOutput, "host: pref ");
  EXPECT_THAT(prefs,
              testing::Contains(R"(host: pref zelnora_ads_custom_headers dictionary {"X-A":"1"})"));
  EXPECT_THAT(prefs,
              testing::Contains(testing::StartsWith("host: pref zelnora_ads_api_prefs data {")));
  std::string storedConfig;
  for (const auto& line : prefs) {
    if (line.starts_with("host: pref zelnora_ads_prefs data ")) {
      storedConfig = line.substr(std::string("host: pref zelnora_ads_prefs data ").size());
    }
  }
  ASSERT_FALSE(storedConfig.empty()) << run.standardOutput;
  EXPECT_EQ(
      nlohmann::json::parse(storedConfig),
      nlohmann::json::parse(R"({"nt":"apns","nai":"demo-app","zelnoraAdsAppId":"demo-key"})"));

  ChildResult cleared = runHost({"delete-config", "remove-custom-headers", "prefs"});
  auto remaining = linesStartingWith(cleared.standardOutput, "host: pref ");
  for (const auto& line : remaining) {
    EXPECT_THAT(line, Not(HasSubstr("zelnora_ads_prefs ")));
    EXPECT_THAT(line, Not(HasSubstr("zelnora_ads_custom_headers")));
  }
}

TEST_F(HostProcessTest, SendReportPostsOneEventWithUserAndHeaders) {
  ChildResult run = runHost({
      "initialize demo-key",
      "wait",
      "set-user-id user-1",
      "set-custom-headers X-Test=yes",
      "send-report event=open campaign=c-1 type=push",
      "wait",
      "send-report event=",
  });
  EXPECT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_THAT(run.standardOutput, HasSubstr("OUTGOING"));
  EXPECT_THAT(run.standardOutput, HasSubstr("INCOMMING"));

  auto reports = receivedOn("/tracker/app");
  ASSERT_EQ(reports.size(), 2u) << run.standardOutput;
  for (const auto& report : reports) {
    EXPECT_EQ(report.method, "POST");
    EXPECT_EQ(report.header("X-Test"), "yes");
    EXPECT_EQ(report.header("X-ZELNORA-CHANNEL-UUID"), "demo-key");
  }
  auto first = nlohmann::json::parse(reports[0].body);
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(first["events"].size(), 1u);
  const auto& event = first["events"][0];
  EXPECT_EQ(event["event"], "open");
  EXPECT_EQ(event["campaignUuid"], "c-1");
  EXPECT_EQ(event["t"], "push");
  EXPECT_EQ(event["userId"], "user-1");
  for (const auto& [key, value] : event.items()) EXPECT_TRUE(value.is_string()) << key;

  const auto second = nlohmann::json::parse(reports[1].body)["events"][0];
  EXPECT_EQ(second["event"], "");
  EXPECT_FALSE(second.contains("campaignUuid"));
  EXPECT_FALSE(second.contains("t"));
  EXPECT_EQ(second["userId"], "user-1");
}

TEST_F(HostProcessTest, RequestPrintsTheResponseOrTheStatusError) {
  ChildResult run = runHost({
      "initialize demo-key",
      "wait",
      "request getCampaign get path.zoneId=42",
      "wait",
      "request sendAppTracking get",
  });
  EXPECT_THAT(run.standardOutput,
              HasSubstr(R"(host: response status=200 body={"zoneId":"42","campaigns":[]})"));
  EXPECT_THAT(run.standardOutput,
              HasSubstr("host: error domain=StatusCode code=405 The operation couldn\u2019t be "
                        "completed. (StatusCode error 405.)"));
  auto campaign = receivedOn("/campaign/v3/42");
  ASSERT_EQ(campaign.size(), 1u);
  EXPECT_EQ(campaign[0].method, "GET");
}

TEST_F(HostProcessTest, DeviceCommandDescribesAModelByIdentifier) {
  ChildResult run = runHost({"device iPhone15,2"});
  auto found = linesStartingWith(run.standardOutput, "host: device ");
  ASSERT_EQ(found.size(), 1u) << run.standardOutput << run.standardError;
  auto device = nlohmann::json::parse(found[0].substr(std::string("host: device ").size()));
  EXPECT_EQ(device["description"], "iPhone 14 Pro");
  EXPECT_EQ(device["isPhone"], true);
  EXPECT_EQ(device["isPad"], false);
  EXPECT_EQ(device["isSimulator"], false);
  EXPECT_EQ(device["isFaceIDCapable"], true);
  EXPECT_TRUE(device["screenRatio"].is_array());
  EXPECT_TRUE(device["cameras"].is_array());
  for (const char* member : {"safeDescription", "cpu", "diagonal", "ppi", "applePencilSupport",
                             "hasLidarSensor", "hasTelephotoCamera"}) {
    EXPECT_TRUE(device.contains(member)) << member;
  }
}

TEST_F(HostProcessTest, DeviceInfoIsOneJsonObjectOfText) {
  ChildResult run = runHost({"device-info"});
  auto found = linesStartingWith(run.standardOutput, "host: device-info ");
  ASSERT_EQ(found.size(), 1u) << run.standardOutput << run.standardError;
  auto info = nlohmann::json::parse(found[0].substr(std::string("host: device-info ").size()));
  ASSERT_TRUE(info.is_object());
  EXPECT_FALSE(info.empty());
  for (const auto& [key, value] : info.items()) EXPECT_TRUE(value.is_string()) << key;
}

TEST_F(HostProcessTest, BadCommandsAreReportedAndTheRunGoesOn) {
  ChildResult run = runHost({"bogus", "initialize", "wait soon", "state"});
  EXPECT_TRUE(run.exitedNormally);
  EXPECT_NE(run.exitStatus, 0);
  auto errors = linesStartingWith(run.standardOutput, "host: error ");
  ASSERT_EQ(errors.size(), 3u) << run.standardOutput;
  EXPECT_THAT(errors[0], HasSubstr("unknown command \"bogus\""));
  EXPECT_THAT(errors[1], HasSubstr("usage: initialize KEY [debug=true|false]"));
  EXPECT_THAT(errors[2], HasSubstr("usage: wait [SECONDS]"));
  EXPECT_THAT(run.standardOutput,
              HasSubstr("host: state initialized=false debug=false disabled=false"));
  EXPECT_TRUE(service_->received().empty());
}

TEST_F(HostProcessTest, CommandsFromStandardInputWithoutPrompt) {
  ChildOptions options;
  options.standardInput = "# a comment\n\nset-pref k string \"a b\"\nprefs\n";
  ChildResult run = runHost({}, options);
  EXPECT_EQ(run.exitStatus, 0) << run.standardOutput;
  EXPECT_EQ(run.standardOutput, "host: pref k string a b\n");
}

TEST_F(HostProcessTest, DemoWalksThroughASessionAndShowsWhatTheServiceReceived) {
  ChildResult run = zelnora_tools_testing::runChild(hostProgram(), {"demo"},
                                                    ChildOptions{{{"XDG_DATA_HOME", data_}}, ""});
  EXPECT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_THAT(run.standardOutput, HasSubstr("SDK initialized successfully"));
  EXPECT_THAT(run.standardOutput, HasSubstr("host: callback"));
  EXPECT_THAT(run.standardOutput, HasSubstr("OUTGOING"));
  auto received = linesStartingWith(run.standardOutput, "host: service received ");
  int reports = 0;
  for (const auto& line : received) {
    auto request =
        nlohmann::json::parse(line.substr(std::string("host: service received ").size()));
    if (request["path"] == "/tracker/app") {
      ++reports;
      EXPECT_EQ(request["method"], "POST");
      EXPECT_EQ(nlohmann::json::parse(request["body"].get<std::string>())["events"].size(), 1u);
    }
  }
  EXPECT_EQ(reports, 3) << run.standardOutput;
  // The demo keeps its stored state to itself.
  EXPECT_TRUE(std::filesystem::is_empty(data_));
}

}  // namespace
}  // namespace zelnora_tools
