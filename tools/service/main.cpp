// zelnora-service: the reference service as a program. Runs until SIGINT or SIGTERM.
// `zelnora-service --help` lists the options (ServiceOptions.cpp holds them).
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "ServiceOptions.h"

int main(int argc, char** argv) {
  zelnora_tools::ServiceCommandLine commandLine;
  zelnora_tools::ReferenceServiceOptions& options = commandLine.options;
  options.registry = zelnora_tools::KeyRegistry::withDemoKey("demo-key");
  options.printRequests = true;
  options.inspector = true;  // the live page at / (LiveView.h)
  std::string error;
  if (!zelnora_tools::parseServiceCommandLine({argv + 1, argv + argc}, commandLine, error)) {
    std::cerr << "zelnora-service: " << error << "\n" << zelnora_tools::serviceSynopsis() << "\n";
    return 2;
  }
  if (commandLine.help) {
    std::cout << zelnora_tools::serviceUsage();
    return 0;
  }

  zelnora_tools::blockStopSignals();

  zelnora_tools::ReferenceService service(std::move(options));
  int port = service.start();
  if (port < 0) {
    std::cerr << "zelnora-service: cannot listen on 127.0.0.1 (port in use?)\n";
    return 1;
  }
  std::printf("zelnora-service: listening on 127.0.0.1:%d\n", port);
  std::fflush(stdout);

  zelnora_tools::waitForStopSignal();
  service.stop();
  std::printf("zelnora-service: stopped\n");
  return 0;
}
