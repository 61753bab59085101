// What zelnora-host printed, read apart: the host's own lines, and the kit's own lines outside the
// traffic dumps.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace test_support {

using Lines = std::vector<std::string>;

// The output's lines that start with `prefix`; with `kitOnly`, the lines the kit printed itself:
// neither the host's own ("host: ...") nor those of a traffic dump.
inline Lines linesOf(const std::string& output, const std::string& prefix, bool kitOnly = false) {
  Lines found;
  bool inDump = false;
  std::istringstream text(output);
  for (std::string line; std::getline(text, line);) {
    if (line.find(" - - - - - - - - - - ") != std::string::npos) {
      inDump = line.find(" END ") == std::string::npos;
    } else if (kitOnly ? !inDump && !line.empty() && !line.starts_with("host: ")
                       : line.starts_with(prefix)) {
      found.push_back(line);
    }
  }
  return found;
}

inline Lines kitLines(const std::string& output) { return linesOf(output, "", true); }

}  // namespace test_support
