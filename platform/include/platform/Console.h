/// \file
/// Standard output and the fatal-error path.
#pragma once

#include <string_view>

#include "platform/export.h"

namespace platform {

class ZELNORA_PLATFORM_EXPORT Console {
 public:
  virtual ~Console() = default;
  Console() = default;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Writes `text` to standard output as one piece (one write call), so that pieces written by
  /// concurrent threads interleave only between pieces. Any thread. Never fails visibly.
  virtual void write(std::string_view text) = 0;

  /// Receives the fatal-error piece ("Fatal error: " + message + line feed) just before the
  /// process aborts, on the thread that met the error. The default writes it to standard error as
  /// one piece; a host console may route it to its own log instead. Returning ends the process.
  virtual void writeFatal(std::string_view text);
};

/// Writes `line` followed by one line feed as a single piece through the current console.
ZELNORA_PLATFORM_EXPORT void printLine(std::string_view line);

/// Ends the process: hands "Fatal error: " + message + line feed to the current console's
/// `writeFatal` (standard error by default), then aborts. It cannot be caught or prevented; tests
/// use death tests.
[[noreturn]] ZELNORA_PLATFORM_EXPORT void fatalError(std::string_view message);

}  // namespace platform
