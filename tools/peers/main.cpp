// zelnora-peers: starts one arrangement of real servers (see Peers.h) in front of an in-process
// reference service, writes a host bundle that points at it, prints how to run the kit against
// it, and runs until SIGINT or SIGTERM. For trying the kit (or zelnora-load --url) by hand.
//
//   zelnora-peers ARRANGEMENT [--keepalive-requests N] [--idle-ms N]

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "HostBundle.h"
#include "Peers.h"
#include "ReferenceService.h"

namespace {

constexpr const char* kUsage =
    "usage: zelnora-peers nginx-http1|nginx-h2|haproxy-h2|squid|gzip-config|tls1.1|tls1.2 "
    "[--keepalive-requests N] [--idle-ms N]";

bool parseOptions(int argc, char** argv, zelnora_peers::PeerOptions& options) {
  if (argc < 2 || !zelnora_peers::peerKindNamed(argv[1])) return false;
  options.kind = *zelnora_peers::peerKindNamed(argv[1]);
  for (int i = 2; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const int value = std::atoi(argv[i + 1]);
    if (value <= 0) return false;
    if (option == "--keepalive-requests") {
      options.keepaliveRequests = value;
    } else if (option == "--idle-ms") {
      options.idleTimeoutMilliseconds = value;
    } else {
      return false;
    }
  }
  return argc % 2 == 0;
}

void printSetUp(const zelnora_peers::PeerSet& peers, int originPort) {
  std::printf("zelnora-peers: %s in front of the reference service on 127.0.0.1:%d\n",
              peers.baseUrl().c_str(), originPort);
  std::printf("run the kit with:\n  env");
  for (const auto& [name, value] : peers.kitEnvironment()) {  // env(1) takes -u first
    if (!value) std::printf(" -u %s", name.c_str());
  }
  for (const auto& [name, value] : peers.kitEnvironment()) {
    if (value) std::printf(" %s=%s", name.c_str(), value->c_str());
  }
  std::printf(
      " XDG_DATA_HOME=%s/data zelnora-host --bundle %s/bundle \"initialize demo-key\" wait\n",
      peers.folder().c_str(), peers.folder().c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  zelnora_peers::PeerOptions options;
  if (!parseOptions(argc, argv, options)) {
    std::cerr << kUsage << "\n";
    return 2;
  }
  zelnora_tools::blockStopSignals();

  zelnora_tools::ReferenceServiceOptions serviceOptions;
  serviceOptions.registry = zelnora_tools::KeyRegistry::withDemoKey("demo-key");
  serviceOptions.keepRequests = false;
  options.configKey = "demo-key";
  options.configBody = serviceOptions.registry.answerFor("demo-key").body;
  zelnora_tools::ReferenceService service(std::move(serviceOptions));
  options.originPort = service.start();
  zelnora_peers::PeerSet peers;
  const std::string failure =
      options.originPort < 0 ? "cannot start the reference service" : peers.start(options);
  if (!failure.empty()) {
    std::cerr << "zelnora-peers: " << failure << "\n";
    return 1;
  }
  std::filesystem::create_directories(peers.folder() + "/bundle");
  zelnora_host::writeHostBundle(peers.folder() + "/bundle",
                                zelnora_host::settingsForService(peers.baseUrl()));
  printSetUp(peers, options.originPort);
  zelnora_tools::waitForStopSignal();
  return 0;
}
