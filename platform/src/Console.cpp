#include "platform/Console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "LinuxProviders.h"
#include "platform/Services.h"

namespace platform {
namespace {

// One write(2) per piece keeps concurrent pieces whole; a short write (pipe full) continues.
void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t n = ::write(fd, text.data(), text.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text.remove_prefix(static_cast<size_t>(n));
  }
}

class StandardOutput final : public Console {
 public:
  void write(std::string_view text) override { writeAll(STDOUT_FILENO, text); }
};

}  // namespace

void Console::writeFatal(std::string_view text) { writeAll(STDERR_FILENO, text); }

void printLine(std::string_view line) {
  std::string piece;
  piece.reserve(line.size() + 1);
  piece.append(line).push_back('\n');
  console().write(piece);
}

void fatalError(std::string_view message) {
  std::string piece = "Fatal error: ";
  piece.append(message).push_back('\n');
  try {
    console().writeFatal(piece);
  } catch (...) {
    writeAll(STDERR_FILENO, piece);  // a throwing host console still leaves the reason somewhere
  }
  std::abort();
}

namespace linux_provider {
Console& standardOutput() {
  static StandardOutput instance;
  return instance;
}
}  // namespace linux_provider

}  // namespace platform
