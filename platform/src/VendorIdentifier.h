// The vendor identifier on Linux: a random UUID kept in the app-group container, so the host and
// its extension, and every run, see the same one. Internal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::detail {

// `text` as canonical UUID text (upper-case 8-4-4-4-12) when it is a UUID; absent otherwise.
std::optional<std::string> canonicalUuid(std::string_view text);

// A new random (version 4) UUID in canonical text.
std::string randomUuid();

// The identifier stored in `containerDirectory`/vendor-id (0600), created on first use; absent
// when it can neither be read nor created.
std::optional<std::string> storedVendorIdentifier(const std::string& containerDirectory);

}  // namespace platform::detail
