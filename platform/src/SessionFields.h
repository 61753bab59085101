// The fields the Linux URL session adds to every request by itself, as the phone's session does:
// User-Agent, Accept-Language and Accept-Encoding. They never appear in the request's own fields.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace platform::detail {

/// Where the User-Agent's parts come from.
struct UserAgentParts {
  std::string appName;               // CFBundleName, else the identifier's last part
  std::optional<std::string> build;  // CFBundleVersion
  std::string kitVersion;            // the session's own version
  std::string osName;                // uname's system name
  std::string osRelease;             // uname's release
};

/// "<app>/<build> zelnora-url-session/<version> <OS>/<release>"; every part outside the HTTP token
/// characters percent-encoded (a space becomes %20), as the phone writes it.
std::string userAgent(const UserAgentParts& parts);

/// "de-DE,de;q=0.9" from the locale variables as glibc reads them (LC_ALL, LC_MESSAGES, LANG;
/// LANGUAGE's list first unless the locale is C or POSIX); "en-US,en;q=0.9" for C, POSIX or none.
std::string acceptLanguage(const std::function<const char*(const char*)>& environment);

/// "gzip, deflate, br" restricted to what this libcurl decodes; empty when it decodes nothing.
std::string acceptEncoding(bool decodesZlib, bool decodesBrotli);

/// The three fields of this process, read once: bundle, uname, locale and libcurl's features.
struct SessionFields {
  std::string userAgent;
  std::string acceptLanguage;
  std::string acceptEncoding;
};
const SessionFields& processSessionFields();

}  // namespace platform::detail
