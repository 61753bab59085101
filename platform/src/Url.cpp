#include "platform/Url.h"

#include <memory>

#include <curl/curl.h>

namespace platform {
namespace {

struct CurlUrlDeleter {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrlHandle = std::unique_ptr<CURLU, CurlUrlDeleter>;

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ); the phone rejects anything else as a scheme.
bool isValidScheme(std::string_view scheme) {
  if (scheme.empty() || !isAlpha(scheme.front())) return false;
  for (char c : scheme) {
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

// The scheme when `text` starts with one ("scheme:"), else empty.
std::string_view leadingScheme(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) return {};
  const auto candidate = text.substr(0, colon);
  return isValidScheme(candidate) ? candidate : std::string_view{};
}

// Controls, blanks, DEL: never part of a URL text (curl rejects them the same way).
bool holdsForbiddenByte(std::string_view text) {
  for (unsigned char c : text) {
    if (c <= 0x20 || c == 0x7F) return true;
  }
  return false;
}

CurlUrlHandle curlParse(const std::string& text) {
  CurlUrlHandle handle(curl_url());
  if (!handle) return nullptr;
  // Any syntactically valid scheme parses (as on the phone); the session decides what it speaks.
  if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
      CURLUE_OK) {
    return nullptr;
  }
  return handle;
}

std::string stripBrackets(std::string host) {
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    return host.substr(1, host.size() - 2);
  }
  return host;
}

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isKeptInQueryComponent(unsigned char c) {
  if (isAlpha(static_cast<char>(c)) || isDigit(static_cast<char>(c))) return true;
  constexpr std::string_view kKept = "-._~!$'()*,;:@/?";
  return kKept.find(static_cast<char>(c)) != std::string_view::npos;
}

std::optional<int> parsePort(std::string_view digits) {
  if (digits.empty() || digits.size() > 5) return std::nullopt;
  int port = 0;
  for (char c : digits) {
    if (!isDigit(c)) return std::nullopt;
    port = port * 10 + (c - '0');
  }
  if (port > 65535) return std::nullopt;
  return port;
}

// The host without port or brackets; absent when the URL has none.
std::optional<std::string> hostOf(CURLU* handle) {
  char* raw = nullptr;
  if (curl_url_get(handle, CURLUPART_HOST, &raw, CURLU_URLDECODE) != CURLUE_OK || !raw) {
    return std::nullopt;
  }
  std::string host = stripBrackets(raw);
  curl_free(raw);
  if (host.empty()) return std::nullopt;
  return host;
}

}  // namespace

// The host is taken at parse time: every request asks for it, and parsing is most of its cost.
std::optional<Url> Url::parse(std::string_view text) {
  if (text.find('\0') != std::string_view::npos || leadingScheme(text).empty()) {
    return std::nullopt;
  }
  std::string owned(text);
  const CurlUrlHandle handle = curlParse(owned);
  if (!handle) return std::nullopt;
  return Url(std::move(owned), hostOf(handle.get()));
}

namespace {

// Splits "[userinfo@]host[:port]" into the components; false when malformed.
bool splitAuthority(std::string_view authority, std::string& user, std::string& password,
                    std::optional<std::string>& host, std::optional<int>& port) {
  const auto at = authority.rfind('@');
  if (at != std::string_view::npos) {
    const auto userinfo = authority.substr(0, at);
    const auto colon = userinfo.find(':');
    user = std::string(userinfo.substr(0, colon));
    if (colon != std::string_view::npos) password = std::string(userinfo.substr(colon + 1));
    authority.remove_prefix(at + 1);
  }
  std::string_view portText;
  bool hasPort = false;
  if (!authority.empty() && authority.front() == '[') {
    const auto close = authority.find(']');
    if (close == std::string_view::npos) return false;
    const auto rest = authority.substr(close + 1);
    if (!rest.empty() && rest.front() != ':') return false;
    hasPort = !rest.empty();
    if (hasPort) portText = rest.substr(1);
    authority = authority.substr(0, close + 1);
  } else if (const auto colon = authority.find(':'); colon != std::string_view::npos) {
    hasPort = true;
    portText = authority.substr(colon + 1);
    authority = authority.substr(0, colon);
  }
  host = std::string(authority);
  if (hasPort && !portText.empty()) {
    port = parsePort(portText);
    if (!port) return false;
  }
  return true;
}

}  // namespace

std::optional<UrlComponents> UrlComponents::parse(std::string_view text) {
  if (holdsForbiddenByte(text)) return std::nullopt;
  UrlComponents parts;
  if (const auto hash = text.find('#'); hash != std::string_view::npos) {
    parts.fragment_ = std::string(text.substr(hash + 1));
    text = text.substr(0, hash);
  }
  if (const auto question = text.find('?'); question != std::string_view::npos) {
    parts.query_ = std::string(text.substr(question + 1));
    text = text.substr(0, question);
  }
  const auto scheme = leadingScheme(text);
  if (!scheme.empty()) {
    parts.scheme_ = std::string(scheme);
    text.remove_prefix(scheme.size() + 1);
  } else {
    // A relative reference may not hold ":" in its first segment (it would read as a scheme).
    const auto colon = text.find(':');
    if (colon != std::string_view::npos && colon < text.find('/')) return std::nullopt;
  }
  if (text.substr(0, 2) == "//") {
    text.remove_prefix(2);
    const auto slash = text.find('/');
    if (!splitAuthority(text.substr(0, slash), parts.user_, parts.password_, parts.host_,
                        parts.port_)) {
      return std::nullopt;
    }
    text = slash == std::string_view::npos ? std::string_view{} : text.substr(slash);
  }
  parts.path_ = std::string(text);
  return parts;
}

std::optional<std::string> UrlComponents::host() const {
  if (!host_) return std::nullopt;
  return percentDecode(stripBrackets(*host_));
}

std::string UrlComponents::path() const { return percentDecode(path_); }

std::optional<std::string> UrlComponents::query() const {
  if (!query_) return std::nullopt;
  return percentDecode(*query_);
}

void UrlComponents::setQueryItems(const std::vector<QueryItem>& items) {
  std::string query;
  for (const auto& [name, value] : items) {
    if (!query.empty()) query += '&';
    query += percentEncodeQueryComponent(name);
    query += '=';
    query += percentEncodeQueryComponent(value);
  }
  query_ = std::move(query);
}

std::optional<Url> UrlComponents::url() const {
  std::string text = scheme_;
  if (!text.empty()) text += ':';
  if (host_) {
    text += "//";
    if (!user_.empty() || !password_.empty()) {
      text += user_;
      if (!password_.empty()) text += ':' + password_;
      text += '@';
    }
    text += *host_;
    if (port_) text += ':' + std::to_string(*port_);
  }
  text += path_;
  if (query_) text += '?' + *query_;
  if (fragment_) text += '#' + *fragment_;
  return Url::parse(text);
}

std::string percentEncodeQueryComponent(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (unsigned char c : text) {
    if (isKeptInQueryComponent(c)) {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += kHex[c >> 4];
      encoded += kHex[c & 0x0F];
    }
  }
  return encoded;
}

std::string percentDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
        hexValue(text[i + 2]) >= 0) {
      decoded += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

}  // namespace platform
