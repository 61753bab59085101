// Text the host hands the kit, made what the kit stores and sends: repaired to valid UTF-8 where it
// enters (as the phone's string type would have it already), header fields that can be sent.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace zelnora_core::detail {

// `text` with every maximal invalid UTF-8 subsequence replaced by U+FFFD.
std::string hostText(const std::string& text);
std::optional<std::string> hostText(const std::optional<std::string>& text);

// The custom header map as it is stored: values repaired like hostText, and every field
// that could never go out on the wire left out (a name that is not an HTTP token, a value holding
// NUL, CR or LF).
std::map<std::string, std::string> sendableHeaders(
    const std::map<std::string, std::string>& headers);

}  // namespace zelnora_core::detail
