/// \file
/// Absolute URLs and their components, parsed with libcurl's URL API.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace platform {

/// An absolute URL (scheme and the rest), kept as its normalised text.
class ZELNORA_PLATFORM_EXPORT Url {
 public:
  /// Absent when `text` is not an absolute URL (no scheme, spaces, bad port, ...).
  static std::optional<Url> parse(std::string_view text);

  const std::string& absoluteString() const { return text_; }
  /// The host without port, brackets kept off IPv6 literals; absent when the URL has none.
  const std::optional<std::string>& host() const { return host_; }

  bool operator==(const Url& other) const { return text_ == other.text_; }

 private:
  Url(std::string text, std::optional<std::string> host)
      : text_(std::move(text)), host_(std::move(host)) {}
  std::string text_;
  std::optional<std::string> host_;  // derived from text_ when parsed
};

using QueryItem = std::pair<std::string, std::string>;

/// The parts of a URL text. Accessors without "percentEncoded" return the text with its
/// percent-encoding removed; absent parts are empty strings for path/query/host.
class ZELNORA_PLATFORM_EXPORT UrlComponents {
 public:
  /// Splits `text` without resolving it against a base. Absent when it does not parse.
  static std::optional<UrlComponents> parse(std::string_view text);

  std::string scheme() const { return scheme_; }
  std::optional<std::string> host() const;  ///< percent-decoded
  std::optional<int> port() const { return port_; }
  std::string path() const;                  ///< percent-decoded
  std::optional<std::string> query() const;  ///< percent-decoded; absent when there is no "?"
  const std::string& percentEncodedPath() const { return path_; }
  const std::optional<std::string>& percentEncodedQuery() const { return query_; }

  /// Replaces the query by the items, each "name=value" joined by "&", names and values
  /// percent-encoded for a query component (upper-case hex). No items give an empty query ("?").
  void setQueryItems(const std::vector<QueryItem>& items);

  /// Rebuilds the URL; absent when the components do not form an absolute URL.
  std::optional<Url> url() const;

 private:
  UrlComponents() = default;
  std::string scheme_, user_, password_;
  std::optional<std::string> fragment_;
  std::optional<std::string> host_;
  std::optional<int> port_;
  std::string path_;
  std::optional<std::string> query_;
};

/// Percent-encodes `text` for a query name or value: every byte outside the unreserved characters
/// and "!$'()*,;:@/?" becomes %XX with upper-case hex ("&", "=", "+", "#" and blanks included).
ZELNORA_PLATFORM_EXPORT std::string percentEncodeQueryComponent(std::string_view text);
/// Removes percent-encoding; a malformed escape is kept as it stands. "+" stays "+".
ZELNORA_PLATFORM_EXPORT std::string percentDecode(std::string_view text);

}  // namespace platform
