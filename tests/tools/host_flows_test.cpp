// The kit as a host app's user sees it: the real zelnora-host program, run as a child process
// against an in-process reference service, one test per user-visible flow. Each test has its own
// bundle and data directory; the runs of one test share the stored state, as launches of one app.
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostBundle.h"
#include "ReferenceService.h"
#include "support/ChildProcess.h"
#include "support/HostOutput.h"
#include "support/TempDirectory.h"

namespace zelnora_tools {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Lines = std::vector<std::string>;
using nlohmann::json;
using Environment = std::map<std::string, std::optional<std::string>>;

constexpr const char* kRegistry = R"({"keys": {
  "demo-key": {"nt": "apns", "nai": "demo-app"},
  "killed": {"nt": "apns", "nai": "demo-app", "k": true},
  "channel": {"nt": "apns", "nai": "demo-app", "zelnoraAdsAppId": "other"},
  "ok299": {"status": 299, "nt": "apns", "nai": "demo-app"},
  "moved": {"status": 300, "nt": "apns", "nai": "demo-app"},
  "boom": {"status": 500},
  "junk": {"body": "not json"},
  "kill-number": {"nt": "apns", "nai": "demo-app", "k": 1}}})";

const std::string kIncoming = "\n - - - - - - - - - - INCOMMING - - - - - - - - - - \n\n";
const std::string kEnd = "\n - - - - - - - - - -  END - - - - - - - - - - \n\n";

using test_support::kitLines;
using test_support::linesOf;

std::string statusError(int status) {
  const std::string code = std::to_string(status);
  return "host: error domain=StatusCode code=" + code +
         " The operation couldn\u2019t be completed. (StatusCode error " + code + ".)";
}

class HostFlows : public ::testing::Test {
 protected:
  void SetUp() override { startService(FaultMode::none); }

  void startService(FaultMode fault) {
    ReferenceServiceOptions options;
    options.registry = *KeyRegistry::fromJson(kRegistry);
    options.fault = fault;
    service_ = std::make_unique<ReferenceService>(std::move(options));
    ASSERT_GT(service_->start(), 0);
    settings_ = zelnora_host::settingsForService(service_->baseUrl());
    settings_.vqxBaseUrl = service_->baseUrl() + "/gw";
    ASSERT_TRUE(zelnora_host::writeHostBundle(bundle_, settings_));
  }

  // One launch of the host app; the simulated readings of `environment` replace the machine's.
  test_support::ChildResult host(const Lines& commands, const std::string& bundle = "",
                                 Environment environment = {}) {
    Lines arguments{"--bundle", bundle.empty() ? bundle_ : bundle};
    arguments.insert(arguments.end(), commands.begin(), commands.end());
    environment.insert({{"XDG_DATA_HOME", data_},
                        {"ZELNORA_SIM_ADVERTISING_ID", std::nullopt},
                        {"ZELNORA_SIM_CARRIER", std::nullopt},
                        {"ZELNORA_SIM_LOCATION", std::nullopt}});
    return test_support::runChild(test_support::toolsDirectory() + "/host/zelnora-host", arguments,
                                  environment);
  }

  std::vector<RecordedRequest> received(const std::string& path) const {
    std::vector<RecordedRequest> found = service_->received();
    std::erase_if(found, [&](const RecordedRequest& r) { return r.path != path; });
    return found;
  }

  test_support::TempDirectory scratch_;
  std::string bundle_ = scratch_.subdirectory("bundle");
  std::string data_ = scratch_.subdirectory("data");
  zelnora_host::HostBundleSettings settings_;
  std::unique_ptr<ReferenceService> service_;
};

struct StartUpCase {
  const char* name;
  const char* stored;  // the configuration stored before the launch ("" none)
  Lines commands;
  Lines kitLines;
  const char* state;        // "initialized=… debug=… disabled=…"
  std::string storedAfter;  // "" none
  std::size_t fetches;      // and as many callbacks when the start-up succeeds
};
void PrintTo(const StartUpCase& c, std::ostream* out) { *out << c.name; }  // ctest's listing

class StartUp : public HostFlows, public ::testing::WithParamInterface<StartUpCase> {};

TEST_P(StartUp, PrintsStoresAndFetchesAsTheAnswerSays) {
  const StartUpCase& c = GetParam();
  Lines commands{"set-pref zelnora_ads_prefs data " + std::string(c.stored)};
  if (*c.stored == '\0') commands.clear();
  commands.insert(commands.end(), c.commands.begin(), c.commands.end());
  commands.insert(commands.end(), {"wait", "state", "prefs"});
  const test_support::ChildResult run = host(commands);
  ASSERT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_EQ(kitLines(run.standardOutput), c.kitLines) << run.standardOutput;
  const bool succeeded = c.kitLines.front() == "SDK initialized successfully";
  EXPECT_EQ(linesOf(run.standardOutput, "host: callback").size(), succeeded ? 1u : 0u);
  EXPECT_EQ(linesOf(run.standardOutput, "host: state "),
            Lines{"host: state " + std::string(c.state)});
  const std::string storedLine = "host: pref zelnora_ads_prefs data ";
  EXPECT_EQ(linesOf(run.standardOutput, storedLine),
            c.storedAfter.empty() ? Lines{} : Lines{storedLine + c.storedAfter});
  ASSERT_EQ(service_->received().size(), c.fetches);
  for (const RecordedRequest& fetch : service_->received()) {
    EXPECT_EQ(fetch.method, "GET");
    EXPECT_THAT(c.commands[0], HasSubstr("initialize " + fetch.path.substr(8)));  // "/config/"
    EXPECT_EQ(fetch.header("Accept"), "application/json");
    EXPECT_EQ(fetch.header("X-ZELNORA-CHANNEL-UUID"), std::nullopt);
  }
}

const char* kOld = R"({\"nt\":\"old\",\"nai\":\"old\"})";
const char* kKill = R"({\"nt\":\"old\",\"nai\":\"old\",\"k\":true})";
const char* kReady = "initialized=true debug=false disabled=false";
const char* kUnready = "initialized=false debug=false disabled=false";
const std::string kKept = R"({"nt":"old","nai":"old"})";
const Lines kOk{"SDK initialized successfully"};
const Lines kError{"Error getting configuration"};
std::string fresh(const std::string& key, const std::string& kill = "") {
  return R"({"nt":"apns","nai":"demo-app")" + kill + R"(,"zelnoraAdsAppId":")" + key + "\"}";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Answers, StartUp, ::testing::Values(
    StartUpCase{"Ok", "", {"initialize demo-key"}, kOk, kReady, fresh("demo-key"), 1},
    StartUpCase{"Ok299Replaces", kOld, {"initialize ok299"}, kOk, kReady, fresh("ok299"), 1},
    StartUpCase{"KillFromTheServiceIsStored", "", {"initialize killed"}, kOk, kReady,
                fresh("killed", R"(,"k":true)"), 1},
    StartUpCase{"ChannelIsTheKey", "", {"initialize channel"}, kOk, kReady, fresh("channel"), 1},
    StartUpCase{"Redirect300Removes", kOld, {"initialize moved"}, kError, kReady, "", 1},
    StartUpCase{"Unauthorized401Keeps", kOld, {"initialize unknown"}, {"Application key invalid"},
                kReady, kKept, 1},
    StartUpCase{"ServerErrorLeavesItUnready", "", {"initialize boom"}, kError, kUnready, "", 1},
    StartUpCase{"NotJsonKeeps", kOld, {"initialize junk"}, kError, kReady, kKept, 1},
    StartUpCase{"KillAsNumberKeeps", kOld, {"initialize kill-number"}, kError, kReady, kKept, 1},
    StartUpCase{"StoredKillDisables", kKill,
                {"initialize demo-key", "set-user-id u", "request-permission"},
                {"Zelnora Ads sdk disabled", "Sdk was not initialized", "Sdk was not initialized"},
                "initialized=false debug=false disabled=true",
                R"({"nt":"old","nai":"old","k":true})", 0},
    StartUpCase{"DebugLiftsStoredKill", kKill, {"initialize demo-key debug=true"}, kOk,
                "initialized=true debug=true disabled=false", fresh("demo-key"), 1},
    StartUpCase{"SecondStartUpIsRefused", "",
                {"initialize demo-key", "wait", "initialize demo-key debug=true"},
                {"SDK initialized successfully", "Sdk already initialized"}, kReady,
                fresh("demo-key"), 1},
    StartUpCase{"KeyThatBreaksTheUrl", "", {"initialize \"a b\""}, {"Zelnora Ads sdk disabled"},
                kUnready, "", 0}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(HostFlows, ReportCarriesUserHeadersAndDeviceFactsAndIsDumped) {
  const test_support::ChildResult run =
      host({"initialize demo-key", "wait", "set-user-id user-1",
            "set-custom-headers X-Test=yes accept=text/html \"Bad Name=v\"",
            "send-report event=open campaign=c-1 type=push", "wait", "send-report event=", "wait",
            "device-info"});
  EXPECT_EQ(kitLines(run.standardOutput),
            (Lines{"SDK initialized successfully", "Error getting adId"}));
  const auto reports = received("/tracker/app");
  ASSERT_EQ(reports.size(), 2u) << run.standardOutput;
  const json first = json::parse(reports[0].body);
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(first["events"].size(), 1u);
  EXPECT_EQ(first["events"][0]["event"], "open");
  EXPECT_EQ(first["events"][0]["campaignUuid"], "c-1");
  EXPECT_EQ(first["events"][0]["t"], "push");
  EXPECT_EQ(first["events"][0]["userId"], "user-1");

  // Without campaign and type the event is the device information map, user and event.
  const Lines deviceInfo = linesOf(run.standardOutput, "host: device-info ");
  ASSERT_EQ(deviceInfo.size(), 1u);
  json expected = json::parse(deviceInfo[0].substr(18));
  const json second = json::parse(reports[1].body)["events"][0];
  expected["eventDate"] = second["eventDate"];  // read when each was made
  expected["battery"] = second["battery"];
  expected.update({{"userId", "user-1"}, {"event", ""}});
  EXPECT_EQ(second, expected);

  // The request is dumped as it went out: fixed headers in order, channel, custom headers, body.
  const std::string url = service_->baseUrl() + "/tracker/app";
  EXPECT_THAT(
      run.standardOutput,
      HasSubstr(url + " \n\n\nPOST /tracker/app? HTTP/1.1 \n\nHOST: 127.0.0.1\n" +
                "Content-Type: application/json; charset=UTF-8 \nAccept: */*,text/html \n" +
                "Content-Length: " + std::to_string(reports[0].body.size()) +
                " \nHost: 127.0.0.1 \nX-ZELNORA-CHANNEL-UUID: demo-key \nX-Test: yes \n\n " +
                reports[0].body + "\n" + kEnd));
  EXPECT_THAT(run.standardOutput,
              HasSubstr(kIncoming + url + "\n\nHTTP 200 /tracker/app?\nHost: 127.0.0.1\n"));
  EXPECT_THAT(run.standardOutput, HasSubstr("\n\n{\"status\":\"ok\"}\n\n" + kEnd));
}

TEST_F(HostFlows, RequestsReachTheirBaseAndCompleteOnceWithTheirOutcome) {
  const test_support::ChildResult run = host(
      {"initialize demo-key", "wait", "request getCampaign get path.zoneId=42 \"param.q=a b&c\"",
       "wait", "request sendAppTracking get", "wait", "request vqxCallback post body={}", "wait",
       "request registerInVqx post", "request unregisterInVqx delete", "wait",
       "request getCampaign get \"path.zoneId=a b\"", "wait",
       // The base URLs are read once per process: storing new ones changes nothing.
       "set-pref zelnora_ads_api_prefs data {}", "request sendPollAnswers post", "wait"});
  Lines outcomes = linesOf(run.standardOutput, "host: ");
  std::erase_if(outcomes, [](const std::string& line) {
    return !line.starts_with("host: response ") && !line.starts_with("host: error ");
  });
  const std::string gateway404 = statusError(404);
  EXPECT_EQ(outcomes, (Lines{R"(host: response status=200 body={"zoneId":"42","campaigns":[]})",
                             statusError(405), gateway404, gateway404, gateway404,
                             "host: error domain=NSURLErrorDomain code=-1000 The operation "
                             "couldn\u2019t be completed. (NSURLErrorDomain error -1000.)",
                             R"(host: response status=200 body={"status":"ok"})"}));
  EXPECT_EQ(kitLines(run.standardOutput), (Lines{"SDK initialized successfully", "Invalid URL"}));
  EXPECT_THAT(run.standardOutput, HasSubstr("\nGET /campaign/v3/42?q=a b&c HTTP/1.1 \n"));
  Lines targets;
  for (const RecordedRequest& r : service_->received()) {
    targets.push_back(r.method + " " + r.path + (r.query.empty() ? "" : "?" + r.query));
  }
  EXPECT_THAT(targets,
              ::testing::UnorderedElementsAre("GET /config/demo-key",
                                              "GET /campaign/v3/42?q=a%20b%26c", "GET /tracker/app",
                                              "POST /gw/v1/device/callback", "POST /gw/v2/register",
                                              "DELETE /gw/v1/unregister", "POST /tracker/quiz"));
}

// The app and its notification service extension share one suite: what the extension stores, the
// app reads. Facts the kit cannot find are left out of the map.
TEST_F(HostFlows, DeviceInformationMapCarriesWhatTheKitFindsInAppAndExtension) {
  settings_.shortVersion = "4.2.1";
  settings_.bundleIdentifier = "a.ZelnoraAdsNotificationService.b.ZelnoraAdsNotificationService";
  const std::string extension = scratch_.subdirectory("extension");
  ASSERT_TRUE(zelnora_host::writeHostBundle(extension, settings_));
  settings_.bundleIdentifier = "a.b";
  ASSERT_TRUE(zelnora_host::writeHostBundle(bundle_, settings_));
  const Environment readings{
      {"ZELNORA_SIM_VENDOR_ID", "0f8fad5b-d9cb-469f-a165-70867728950e"},
      {"ZELNORA_SIM_CARRIER", "Zelnora Mobile"},
      {"ZELNORA_SIM_LOCATION", "-23.5505199,0"},
      {"ZELNORA_SIM_ADVERTISING_ID", "6d92078a-8246-4ba4-ae5b-76104861e7dc"}};
  const std::string bare =
      host({"device-info"}, "", {{"ZELNORA_SIM_VENDOR_ID", "no uuid"}}).standardOutput;
  const std::string stored =
      host({"initialize demo-key", "wait", "set-user-id u", "device-info"}, extension, readings)
          .standardOutput;
  const Lines maps = linesOf(stored + host({"device-info"}, "", readings).standardOutput + bare,
                             "host: device-info ");
  ASSERT_EQ(maps.size(), 3u);
  json inExtension = json::parse(maps[0].substr(18)), full = json::parse(maps[1].substr(18)),
       fixed = json::parse(maps[2].substr(18));
  EXPECT_EQ(full["eventDate"].get<std::string>().size(), 13u);
  for (const char* live : {"eventDate", "battery"}) inExtension[live] = fixed[live] = full[live];
  EXPECT_EQ(inExtension, full);
  for (const char* machine : {"hardware", "model", "product", "osVersion", "os", "battery"}) {
    EXPECT_EQ(full[machine], fixed[machine]) << machine;  // the machine's own readings
    full.erase(machine);
    fixed.erase(machine);
  }
  EXPECT_THAT(fixed["sdkVersion"].get<std::string>(),
              ::testing::MatchesRegex("[0-9.]+\\([0-9]+\\)"));
  EXPECT_EQ(fixed, json({{"appVersion", "4.2.1"},
                         {"appId", "a.b"},
                         {"brand", "Apple"},
                         {"manufacturer", "Apple"},
                         {"sdkVersion", fixed["sdkVersion"]},
                         {"eventDate", full["eventDate"]}}));
  fixed.update({{"deviceId", "0F8FAD5B-D9CB-469F-A165-70867728950E"},
                {"carrier", "Zelnora Mobile"},
                {"lat", "-23.550520"},
                {"long", "0.000000"},
                {"adId", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}});
  EXPECT_EQ(full, fixed);
}

// A host property list the kit cannot use ends the app with its reason before anything is sent.
TEST_F(HostFlows, UnusableHostPropertyListEndsTheAppWithItsReason) {
  const auto plist = [](const std::string& entries) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
  };
  const auto entry = [](const std::string& key, const char* value = "<string>http://h</string>") {
    return "<key>" + key + "</key>" + value;
  };
  // clang-format off
  const std::pair<std::optional<std::string>, std::string> cases[] = {
      {std::nullopt, "ZelnoraAdsConfig plist not found"}, {"not a plist", "ZelnoraAdsConfig plist not found"},
      {plist(entry("init_config")), "Missing plist key INIT_CONFIG"},
      {plist(entry("INIT_CONFIG")), "Missing plist key API_BASE_URL"},
      {plist(entry("INIT_CONFIG") + entry("API_BASE_URL")), "Missing plist key VQX_BASE_URL"},
      {plist(entry("INIT_CONFIG", "<integer>5</integer>") + entry("API_BASE_URL") + entry("VQX_BASE_URL")),
       "Missing plist key INIT_CONFIG"}};
  // clang-format on
  for (const auto& [file, message] : cases) {
    std::filesystem::remove(bundle_ + "/ZelnoraAdsConfig.plist");
    if (file) scratch_.write("bundle/ZelnoraAdsConfig.plist", *file);
    const test_support::ChildResult run = host({"initialize demo-key", "wait"});
    EXPECT_EQ(run.terminatingSignal, SIGABRT) << message;
    EXPECT_EQ(run.standardError, "Fatal error: " + message + "\n");
  }
  EXPECT_TRUE(service_->received().empty());
}

TEST_F(HostFlows, DeviceCommandDescribesTheModelAsJson) {
  EXPECT_EQ(
      linesOf(host({"device iPhone15,2"}).standardOutput, "host: device "),
      Lines{R"(host: device {"description":"iPhone 14 Pro","safeDescription":"iPhone 14 Pro",)"
            R"("cpu":"A16 Bionic","diagonal":6.1,"ppi":460,"screenRatio":[9,19.5],)"
            R"("cameras":["wide","telephoto","ultraWide"],"applePencilSupport":0,"isPod":false,)"
            R"("isPhone":true,"isPad":false,"isSimulator":false,"isTouchIDCapable":false,)"
            R"("isFaceIDCapable":true,"hasBiometricSensor":true,"hasSensorHousing":true,)"
            R"("hasRoundedDisplayCorners":true,"has3dTouchSupport":false,)"
            R"("supportsWirelessCharging":true,"hasLidarSensor":true,"hasCamera":true,)"
            R"("hasNormalCamera":true,"hasWideCamera":true,"hasTelephotoCamera":true,)"
            R"("hasUltraWideCamera":true})"});
}

struct FaultCase {
  FaultMode first;
  std::string second;  // how the request's outcome line starts
};
void PrintTo(const FaultCase& c, std::ostream* out) { *out << faultModeName(c.first); }

class FaultModes : public HostFlows, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(FaultModes, EachExchangeCompletesOnceAndReportsItsError) {
  startService(GetParam().first);
  const test_support::ChildResult run =
      host({"initialize demo-key", "wait", "send-report event=e", "wait",
            "request sendAppTracking post body={}", "wait"});
  EXPECT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_EQ(received("/tracker/app").size(), 2u) << "neither lost nor sent again";
  Lines outcome = linesOf(run.standardOutput, "host: response ");
  if (outcome.empty()) outcome = linesOf(run.standardOutput, "host: error ");
  ASSERT_EQ(outcome.size(), 1u) << run.standardOutput;
  EXPECT_THAT(outcome[0], ::testing::StartsWith(GetParam().second));
  Lines kit = kitLines(run.standardOutput);
  std::erase(kit, "Error getting configuration");  // the fault service's answer to the fetch
  if (GetParam().second.starts_with("host: response")) {
    EXPECT_EQ(kit, Lines{}) << "a report that succeeds prints nothing";
  } else {  // the report's one line is the error's description, as its dump shows it
    ASSERT_EQ(kit.size(), 1u) << run.standardOutput;
    EXPECT_THAT(run.standardOutput, HasSubstr(kIncoming + "\nError: " + kit[0] + "\n\n" + kEnd));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, FaultModes,
    ::testing::Values(
        FaultCase{FaultMode::reset, "host: error domain=NSURLErrorDomain code=-1005 "},
        FaultCase{FaultMode::closeMidBody, "host: error domain=NSURLErrorDomain code=-1005 "},
        FaultCase{FaultMode::garbageStatus, "host: error domain=NSURLErrorDomain code=-1011 "},
        FaultCase{FaultMode::slowDrip, R"(host: response status=200 body={"status":"ok"})"}),
    [](const auto& info) {
      std::string name(faultModeName(info.param.first));
      std::erase(name, '-');
      return name;
    });

}  // namespace
}  // namespace zelnora_tools
