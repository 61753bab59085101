// zelnora-service's command line: one table of options, from which both the parsing and the
// `--help` text come.
#pragma once

#include <string>
#include <vector>

#include "ReferenceService.h"

namespace zelnora_tools {

struct ServiceCommandLine {
  bool help = false;  // --help or -h: print serviceUsage() and stop
  ReferenceServiceOptions options;
};

// Parses argv[1..] into `parsed` (which holds the defaults). False with `error` set (one line, no
// newline) when an option is unknown, lacks its value, or its value is out of range or unreadable.
bool parseServiceCommandLine(const std::vector<std::string>& arguments, ServiceCommandLine& parsed,
                             std::string& error);

// The one-line synopsis ("usage: zelnora-service [--port N] ...").
std::string serviceSynopsis();
// The synopsis, what the service does, and one line per option.
std::string serviceUsage();

}  // namespace zelnora_tools
