// Numbers in files, settings and environment values are written the C way ("2.5") whatever
// locale the host process chose: a kiosk or head unit running with LANG=de_DE.UTF-8 (GTK and Qt
// adopt it for the whole process) must read them exactly as a phone would.
#pragma once

#include <locale.h>

#include <optional>
#include <string_view>

namespace platform::detail {

// A decimal number in C syntax filling the whole text (leading blanks and one "+" allowed),
// finite; absent otherwise. Never depends on the process or thread locale.
std::optional<double> parseCDecimal(std::string_view text);

// While alive, the C library's number conversions on this thread (strtod, printf, as libplist
// uses them) follow the C locale; the thread's previous locale comes back afterwards.
class ScopedCNumbers {
 public:
  ScopedCNumbers();
  ~ScopedCNumbers();
  ScopedCNumbers(const ScopedCNumbers&) = delete;
  ScopedCNumbers& operator=(const ScopedCNumbers&) = delete;

 private:
  locale_t previous_;
};

}  // namespace platform::detail
