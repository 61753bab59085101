// zelnora-host: plays the host application so that the kit can be driven from a terminal, a script
// or a test. `zelnora-host [--bundle DIR] [COMMAND ...]`; `zelnora-host --help` lists the commands.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "HostSession.h"
#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAReportOutbox.h"

namespace {

void readCommandsFromStandardInput(zelnora_host::HostSession& session) {
  const bool interactive = ::isatty(STDIN_FILENO) != 0;
  std::string line;
  while (true) {
    if (interactive) platform::console().write("zelnora> ");
    if (!std::getline(std::cin, line)) break;
    session.run(line);
  }
}

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  auto arguments = zelnora_host::parseHostArguments(std::vector<std::string>(argv, argv + argc));
  if (!arguments) {
    platform::printLine("host: error " + arguments.error);
    return 2;
  }
  if (arguments->bundleDirectory) platform::setMainBundleDirectory(*arguments->bundleDirectory);

  zelnora_host::HostSession session;
  if (arguments->help) {
    platform::console().write(zelnora_host::hostUsage(session.commands()));
    return 0;
  }
  if (arguments->commandLines.empty()) {
    readCommandsFromStandardInput(session);
  } else {
    for (const std::string& line : arguments->commandLines) session.run(line);
  }
  // Let exchanges still in flight finish, so that their completions and dumps print.
  platform::urlSession().waitUntilIdle(std::chrono::seconds(10));
  // A durable-reports delivery in flight ends with its outcome written to the outbox.
  zelnora_core::ZAReportOutbox::waitUntilSettled(std::chrono::seconds(10));
  return session.anyFailed() ? 1 : 0;
}
