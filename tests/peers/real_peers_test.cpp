// The kit against real servers from the machine's packages (nginx, HAProxy, squid) on loopback in
// front of the reference service: zelnora-host drives the kit as an app would, and the service
// counts what arrived. A missing server fails its case, naming the package to install.
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostBundle.h"
#include "Peers.h"
#include "ReferenceService.h"
#include "support/ChildProcess.h"
#include "support/HostOutput.h"
#include "support/TempDirectory.h"

namespace {

using zelnora_peers::PeerKind;
using Lines = std::vector<std::string>;

struct PeerCase {
  const char* name;
  PeerKind kind;
  int reports;
  int burst;       // reports sent back to back, then a pause (none when 0) of this many seconds
  double pause;    // plus a quarter of a second, then minus one, and so on: either side of an
                   // idle time-out by more than a loaded machine's delays (a request sent just
                   // as the peer closes the connection may be lost, on the phone too)
  bool kitStarts;  // false: the kit refuses the peer and nothing reaches the service
};

void PrintTo(const PeerCase& c, std::ostream* out) { *out << c.name; }

using test_support::kitLines;

// The fields the session adds by itself, in their shape, as the origin behind the peer saw them.
bool carriesSessionFields(const zelnora_tools::RecordedRequest& request) {
  static const std::regex userAgent(R"(demo(/\S+)? zelnora-url-session/\S+ Linux/\S+)");
  static const std::regex encodings("gzip, deflate(, br)?");
  return std::regex_match(request.header("User-Agent").value_or(""), userAgent) &&
         request.header("Accept-Language") == "de-DE,de;q=0.9" &&
         std::regex_match(request.header("Accept-Encoding").value_or(""), encodings);
}

Lines hostCommands(const PeerCase& c) {
  Lines commands{"initialize peer-key", "wait 30"};
  for (int i = 0; i < c.reports; ++i) {
    if (i > 0 && i % c.burst == 0 && c.pause > 0) {
      const bool pastTheTimeOut = (i / c.burst) % 2 == 1;
      commands.push_back("pause " + std::to_string(c.pause + (pastTheTimeOut ? 0.25 : -0.25)));
    }
    commands.push_back("send-report event=r" + std::to_string(i));
  }
  commands.push_back("wait 30");
  return commands;
}

class RealPeers : public ::testing::TestWithParam<PeerCase> {};

TEST_P(RealPeers, EveryReportArrivesExactlyOnce) {
  const PeerCase& c = GetParam();
  zelnora_tools::ReferenceServiceOptions options;
  options.registry = zelnora_tools::KeyRegistry::withDemoKey("peer-key");
  zelnora_tools::ReferenceService service(std::move(options));
  zelnora_peers::PeerSet peers;
  const std::string configBody = zelnora_tools::KeyRegistry::withDemoKey("k").answerFor("k").body;
  const std::string failure =
      peers.start({c.kind, service.start(), 3, 1000, "peer-key", configBody});
  ASSERT_EQ(failure, "");
  test_support::TempDirectory host;
  const std::string bundle = host.subdirectory("bundle");
  ASSERT_TRUE(
      zelnora_host::writeHostBundle(bundle, zelnora_host::settingsForService(peers.baseUrl())));
  Lines arguments{"--bundle", bundle};
  for (const std::string& command : hostCommands(c)) arguments.push_back(command);
  test_support::ChildEnvironment environment(peers.kitEnvironment().begin(),
                                             peers.kitEnvironment().end());
  environment.insert({{"XDG_DATA_HOME", host.subdirectory("data")},
                      {"LANG", "de_DE.UTF-8"},
                      {"LC_ALL", std::nullopt},
                      {"LC_MESSAGES", std::nullopt},
                      {"LANGUAGE", std::nullopt}});
  const auto run = test_support::runChild(test_support::toolsDirectory() + "/host/zelnora-host",
                                          arguments, environment);
  ASSERT_EQ(run.exitStatus, 0) << run.standardError;

  std::map<std::string, int> arrivals;
  for (int i = 0; i < c.reports; ++i) arrivals["r" + std::to_string(i)] = 0;
  for (const zelnora_tools::RecordedRequest& request : service.received()) {
    EXPECT_TRUE(carriesSessionFields(request)) << request.toJsonLine();
    if (request.path == "/tracker/app") {
      ++arrivals[nlohmann::json::parse(request.body)["events"][0]["event"].get<std::string>()];
    }
  }
  Lines notOnce;  // "r7 arrived 0 times"
  for (const auto& [event, count] : arrivals) {
    if (count != 1) notOnce.push_back(event + " arrived " + std::to_string(count) + " times");
  }
  EXPECT_EQ(notOnce, Lines{}) << run.standardOutput;
  const Lines lines = kitLines(run.standardOutput);
  EXPECT_EQ(lines.empty() ? "" : lines.front(), c.kitStarts ? "SDK initialized successfully" : "")
      << run.standardOutput;
  if (!c.kitStarts) {
    EXPECT_EQ(service.receivedCount(), 0u);
  }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Peers, RealPeers, ::testing::Values(
    PeerCase{"NginxHttp1RetiresEveryThirdRequest", PeerKind::nginxHttp1, 40, 40, 0, true},
    PeerCase{"NginxHttp2RetiresEveryThirdStream", PeerKind::nginxHttp2, 40, 40, 0, true},
    PeerCase{"HaproxyHttp2ClosesIdleConnections", PeerKind::haproxyHttp2, 40, 4, 1.0, true},
    PeerCase{"HttpsThroughSquidOnly", PeerKind::squid, 10, 10, 0, true},
    PeerCase{"ConfigurationServedCompressed", PeerKind::gzipConfig, 0, 1, 0, true},
    PeerCase{"Tls12Accepted", PeerKind::tls12, 1, 1, 0, true},
    PeerCase{"Tls11Refused", PeerKind::tls11, 0, 1, 0, false}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
