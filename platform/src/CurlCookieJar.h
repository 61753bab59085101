// The URL session's cookie store: libcurl's cookie engine, shared by every transfer of the
// process, kept on disk per bundle identifier so that each app and each extension has its own.
// Internal to the Linux URL session.
#pragma once

#include <optional>
#include <string>

#include <curl/curl.h>

#include "platform/internal/ThreadAnnotations.h"

namespace platform::detail {

class CookieJar {
 public:
  CookieJar();
  ~CookieJar();
  CookieJar(const CookieJar&) = delete;
  CookieJar& operator=(const CookieJar&) = delete;

  // Lets `easy` send and receive the shared cookies. The first call binds the store to the main
  // bundle's identifier and loads what an earlier launch kept. Session worker thread only.
  void attach(CURL* easy);

  // Writes the persistent cookies (session cookies end with the process) when they differ from
  // what is on disk: privately (file 0600 in a 0700 folder), replaced in one rename. Session
  // worker thread only, after an answer that set cookies finished on `easy`.
  void save(CURL* easy);

 private:
  // libcurl takes a lock in one callback and gives it back in another, around its own data: no
  // scope the analysis could follow, and nothing of ours for it to guard.
  static void lock(CURL*, curl_lock_data data, curl_lock_access,
                   void* self) ZELNORA_NO_THREAD_SAFETY_ANALYSIS;
  static void unlock(CURL*, curl_lock_data data, void* self) ZELNORA_NO_THREAD_SAFETY_ANALYSIS;
  void load(CURL* easy);

  CURLSH* const share_;
  Mutex locks_[CURL_LOCK_DATA_LAST];
  bool bound_ = false;               // worker thread only
  std::optional<std::string> file_;  // worker thread only; absent: cookies live in memory only
  std::string saved_;                // worker thread only: the file's contents
};

// Where the cookies of the app with `bundleIdentifier` are kept under the data home
// ($XDG_DATA_HOME, else ~/.local/share): zelnora/cookies/<bundle identifier>. Absent when the
// identifier cannot name a file.
std::optional<std::string> cookieFileFor(const std::optional<std::string>& bundleIdentifier);

}  // namespace platform::detail
