/// \file
/// Internal: the HTTP text rules every layer shares (token characters, ASCII case folding).
/// Locale-free on purpose: a host running under another locale must not change what is a token.
#pragma once

#include <algorithm>
#include <string_view>

namespace platform::http {

constexpr char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

/// A "tchar" of RFC 9110 §5.6.2: ASCII letters and digits and "!#$%&'*+-.^_`|~".
constexpr bool isTokenCharacter(char c) {
  constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kSymbols.find(c) != std::string_view::npos;
}

/// A non-empty token: what a field name or a method must be. Keeps CR, LF, NUL, ':' and blanks
/// out of both.
constexpr bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

/// A field value that can go on the wire as it is: no CR, LF or NUL, which would end the header
/// line early (libcurl writes values verbatim, so they would inject a line of their own).
constexpr bool isSendableValue(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

/// ASCII case-insensitive equality, as field names compare.
constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

/// True when `text` begins with `prefix`, letter case aside.
constexpr bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

}  // namespace platform::http
