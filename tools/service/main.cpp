// zelnora-service: the reference service as a program. Runs until SIGINT or SIGTERM.
// `zelnora-service --help` lists the options (ServiceOptions.cpp holds them).
#include <pthread.h>
#include <signal.h>
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

  // Block the stop signals in every thread (the server's threads inherit the mask) and take them
  // synchronously here, so that stopping runs on an ordinary thread.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  zelnora_tools::ReferenceService service(std::move(options));
  int port = service.start();
  if (port < 0) {
    std::cerr << "zelnora-service: cannot listen on 127.0.0.1 (port in use?)\n";
    return 1;
  }
  std::printf("zelnora-service: listening on 127.0.0.1:%d\n", port);
  std::fflush(stdout);

  int received = 0;
  sigwait(&stopSignals, &received);
  service.stop();
  std::printf("zelnora-service: stopped\n");
  return 0;
}
