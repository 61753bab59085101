// The fields the Linux URL session adds to every request by itself.
#include "SessionFields.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include <curl/curl.h>

#include "LinuxProviders.h"
#include "platform/Bundle.h"
#include "platform/internal/HttpText.h"

namespace platform::detail {
namespace {

constexpr std::string_view kSessionToken = "zelnora-url-session";
constexpr std::string_view kEnglish = "en-US,en;q=0.9";
constexpr std::size_t kMostLanguages = 8;

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (platform::http::isTokenCharacter(c) && c != '%') {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded.append({'%', kHex[byte >> 4], kHex[byte & 15]});
    }
  }
  return encoded;
}

// "de_DE.UTF-8@euro" -> "de-DE"; empty when what remains is not letters, digits and '-'.
std::string languageTag(std::string_view name) {
  name = name.substr(0, name.find_first_of(".@"));
  std::string tag;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '_' || c == '-') {
      tag += '-';
    } else if (byte < 0x80 && std::isalnum(byte)) {
      tag += c;
    } else {
      return {};
    }
  }
  return tag.empty() || tag.front() == '-' ? std::string() : tag;
}

std::vector<std::string> preferredTags(std::string_view locale, const char* languageList) {
  std::vector<std::string> tags;
  std::string_view list =
      languageList != nullptr && *languageList != '\0' ? std::string_view(languageList) : locale;
  while (!list.empty()) {
    const auto colon = list.find(':');
    std::string tag = languageTag(list.substr(0, colon));
    if (!tag.empty()) tags.push_back(std::move(tag));
    list = colon == std::string_view::npos ? std::string_view() : list.substr(colon + 1);
  }
  return tags;
}

// Each tag, then its bare language when a region follows it, with falling weights.
std::string weightedList(const std::vector<std::string>& tags) {
  std::vector<std::string> entries;
  auto add = [&](const std::string& entry) {
    if (entries.size() < kMostLanguages &&
        std::find(entries.begin(), entries.end(), entry) == entries.end()) {
      entries.push_back(entry);
    }
  };
  for (const auto& tag : tags) {
    add(tag);
    add(tag.substr(0, tag.find('-')));
  }
  std::string text;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (i > 0) text += ",";
    text += entries[i];
    if (i > 0) text += ";q=0." + std::to_string(10 - i);
  }
  return text;
}

std::string bundleEntry(const std::optional<PropertyDictionary>& info, const char* key) {
  if (!info) return {};
  const auto entry = info->find(key);
  if (entry == info->end() || entry->second.string() == nullptr) return {};
  return *entry->second.string();
}

UserAgentParts processParts() {
  UserAgentParts parts;
  const auto info = linux_provider::mainBundle().infoDictionary();
  parts.appName = bundleEntry(info, "CFBundleName");
  if (parts.appName.empty()) {
    const std::string identifier = bundleEntry(info, "CFBundleIdentifier");
    parts.appName = identifier.substr(identifier.rfind('.') + 1);
  }
  if (parts.appName.empty()) parts.appName = program_invocation_short_name;
  if (std::string build = bundleEntry(info, "CFBundleVersion"); !build.empty()) parts.build = build;
  parts.kitVersion = ZELNORA_SHORT_VERSION;
  utsname system{};
  if (uname(&system) == 0) {
    parts.osName = system.sysname;
    parts.osRelease = system.release;
  }
  return parts;
}

}  // namespace

std::string userAgent(const UserAgentParts& parts) {
  std::string text = percentEncoded(parts.appName);
  if (parts.build) text += "/" + percentEncoded(*parts.build);
  text += " " + std::string(kSessionToken) + "/" + percentEncoded(parts.kitVersion);
  if (!parts.osName.empty()) {
    text += " " + percentEncoded(parts.osName) + "/" + percentEncoded(parts.osRelease);
  }
  return text;
}

std::string acceptLanguage(const std::function<const char*(const char*)>& environment) {
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = environment(name);
    if (value != nullptr && *value != '\0') {
      locale = value;
      break;
    }
  }
  const std::string_view base = locale.substr(0, locale.find_first_of(".@"));
  if (base.empty() || base == "C" || base == "POSIX") return std::string(kEnglish);
  const auto tags = preferredTags(locale, environment("LANGUAGE"));
  return tags.empty() ? std::string(kEnglish) : weightedList(tags);
}

std::string acceptEncoding(bool decodesZlib, bool decodesBrotli) {
  std::string list = decodesZlib ? "gzip, deflate" : "";
  if (decodesBrotli) list += list.empty() ? "br" : ", br";
  return list;
}

const SessionFields& processSessionFields() {
  static const SessionFields fields = [] {
    const curl_version_info_data* curl = curl_version_info(CURLVERSION_NOW);
    return SessionFields{userAgent(processParts()),
                         acceptLanguage([](const char* name) { return std::getenv(name); }),
                         acceptEncoding((curl->features & CURL_VERSION_LIBZ) != 0,
                                        (curl->features & CURL_VERSION_BROTLI) != 0)};
  }();
  return fields;
}

}  // namespace platform::detail
