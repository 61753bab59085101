#include "CNumbers.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace platform::detail {

std::optional<double> parseCDecimal(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

namespace {
locale_t cLocale() {
  // Made once and kept for the life of the process, as the threads using it may outlive statics.
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return locale;
}
}  // namespace

ScopedCNumbers::ScopedCNumbers()
    : previous_(cLocale() != static_cast<locale_t>(nullptr) ? ::uselocale(cLocale())
                                                            : static_cast<locale_t>(nullptr)) {}

ScopedCNumbers::~ScopedCNumbers() {
  if (previous_ != static_cast<locale_t>(nullptr)) ::uselocale(previous_);
}

}  // namespace platform::detail
