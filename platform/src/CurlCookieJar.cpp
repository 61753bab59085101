#include "CurlCookieJar.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

#include "AppGroupContainer.h"
#include "LinuxProviders.h"

namespace platform::detail {
namespace {

constexpr std::size_t kMaxIdentifierLength = 255;

std::string dataHome() {
  // Read once, when the first exchange starts; the kit never changes the environment.
  // NOLINTBEGIN(concurrency-mt-unsafe)
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && data[0] == '/') {
    return data;
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return std::string(home) + "/.local/share";
  }
  if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return std::string(entry->pw_dir) + "/.local/share";
  }
  // NOLINTEND(concurrency-mt-unsafe)
  return "/tmp";
}

// A cookie line of libcurl's list, tab-separated: domain, subdomains, path, secure, expiry, name,
// value. Expiry 0 marks a session cookie.
bool isSessionCookie(std::string_view line) {
  for (int field = 0; field < 4; ++field) {
    const auto tab = line.find('\t');
    if (tab == std::string_view::npos) return false;
    line.remove_prefix(tab + 1);
  }
  return line.substr(0, line.find('\t')) == "0";
}

std::string persistentCookies(CURL* easy) {
  curl_slist* cookies = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &cookies) != CURLE_OK) return {};
  std::string text;
  for (const curl_slist* entry = cookies; entry != nullptr; entry = entry->next) {
    if (!isSessionCookie(entry->data)) text.append(entry->data).push_back('\n');
  }
  curl_slist_free_all(cookies);
  return text;
}

bool writeWhole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Readers see the old file or the new one, never a part; the new one is private from its creation.
bool replaceFile(const std::string& path, std::string_view text) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = path.substr(0, slash);
  if (!createPrivateDirectories(folder) || ::chmod(folder.c_str(), 0700) != 0) return false;
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());  // mode 0600
  if (fd < 0) return false;
  const bool written = writeWhole(fd, text);
  if (::close(fd) == 0 && written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
  ::unlink(temporary.c_str());
  return false;
}

}  // namespace

std::optional<std::string> cookieFileFor(const std::optional<std::string>& bundleIdentifier) {
  if (!bundleIdentifier) return std::nullopt;
  const std::string& id = *bundleIdentifier;
  if (id.empty() || id.size() > kMaxIdentifierLength || id.front() == '.' ||
      id.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
    return std::nullopt;
  }
  return dataHome() + "/zelnora/cookies/" + id;
}

CookieJar::CookieJar() : share_(curl_share_init()) {
  curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &CookieJar::lock);
  curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &CookieJar::unlock);
  curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
  curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
}

CookieJar::~CookieJar() { curl_share_cleanup(share_); }

void CookieJar::lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
  static_cast<CookieJar*>(self)->locks_[data].lock();
}

void CookieJar::unlock(CURL*, curl_lock_data data, void* self) {
  static_cast<CookieJar*>(self)->locks_[data].unlock();
}

void CookieJar::attach(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_SHARE, share_);
  curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");  // switches the engine on; reads no file
  if (bound_) return;
  bound_ = true;
  file_ = cookieFileFor(linux_provider::mainBundle().bundleIdentifier());
  load(easy);
}

void CookieJar::load(CURL* easy) {
  if (!file_) return;
  std::ifstream in(*file_, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  saved_ = text.str();
  std::istringstream lines(saved_);
  // Expired cookies are dropped as they are added.
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) curl_easy_setopt(easy, CURLOPT_COOKIELIST, line.c_str());
  }
}

void CookieJar::save(CURL* easy) {
  if (!file_) return;
  std::string text = persistentCookies(easy);
  if (text == saved_) return;
  if (replaceFile(*file_, text)) saved_ = std::move(text);
}

}  // namespace platform::detail
