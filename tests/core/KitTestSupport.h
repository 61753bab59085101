// Shared pieces of the kit's tests: host bundles written to disk, a loopback configuration server,
// and running a scenario in a fresh process (a new app launch).
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

#include "support/RecordingServer.h"

namespace kit_test {

inline void writeFile(const std::filesystem::path& path, std::string_view contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
}

inline std::string xmlEscape(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else
      out += c;
  }
  return out;
}

// An XML property list whose root dictionary holds `entries` (raw XML values, e.g.
// "<string>x</string>").
inline std::string xmlPlist(const std::map<std::string, std::string>& entries) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n";
  for (const auto& [key, value] : entries) {
    xml += "  <key>" + xmlEscape(key) + "</key>\n  " + value + "\n";
  }
  return xml + "</dict>\n</plist>\n";
}

inline std::string plistString(std::string_view text) {
  return "<string>" + xmlEscape(text) + "</string>";
}

// Writes ZelnoraAdsConfig.plist with the three service addresses into `dir`.
inline void writeHostConfig(const std::filesystem::path& dir, const std::string& initConfig,
                            const std::string& apiBase, const std::string& vqxBase) {
  writeFile(dir / "ZelnoraAdsConfig.plist", xmlPlist({{"INIT_CONFIG", plistString(initConfig)},
                                                      {"API_BASE_URL", plistString(apiBase)},
                                                      {"VQX_BASE_URL", plistString(vqxBase)}}));
}

// A loopback server answering the configuration endpoint "/config/<key>" from a table (401 "{}"
// for a key without an answer), one request per connection; it counts and records the
// configuration requests it gets.
class ConfigServer {
 public:
  using Answer = test_support::Answer;

  void answer(const std::string& key, Answer answer) {
    server_.answerPath("GET", "/config/" + key, std::move(answer));
  }
  int port() const { return server_.port(); }
  std::string base() const { return server_.base(); }
  std::string configTemplate() const { return base() + "/config/{key}"; }
  int requests() const { return static_cast<int>(configRequests().size()); }
  std::string lastPath() const {
    const auto seen = configRequests();
    return seen.empty() ? std::string() : seen.back().path;
  }
  std::string lastAccept() const {
    const auto seen = configRequests();
    if (seen.empty()) return {};
    const auto accept = seen.back().values("Accept");
    return accept.empty() ? std::string() : accept.front();
  }

 private:
  static bool isConfigRequest(const std::string& method, const std::string& path) {
    return (method == "GET" || method == "HEAD") && path.rfind("/config/", 0) == 0;
  }
  static void answerUnknownKey(const httplib::Request& request, httplib::Response& response) {
    if (!isConfigRequest(request.method, request.path)) {
      response.status = 404;
      return;
    }
    response.status = 401;
    response.set_content("{}", "application/json");
  }
  std::vector<test_support::ReceivedRequest> configRequests() const {
    auto seen = server_.received();
    std::erase_if(
        seen, [](const auto& request) { return !isConfigRequest(request.method, request.path); });
    return seen;
  }

  // One request per connection: the kit's session keeps connections alive, and a server waiting
  // on an idle kept-alive connection would hold up its own shutdown.
  test_support::RecordingServer server_{answerUnknownKey, {.keepAlive = false}};
};

}  // namespace kit_test

// Runs `body` in a new process of this test binary, as a new launch of the host app: the kit's
// process-wide state (the manager's flags, the cached suite name) starts fresh. The child exits 0
// when no assertion in `body` failed.
#define KIT_IN_FRESH_PROCESS(body)                                                \
  do {                                                                            \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                               \
    EXPECT_EXIT(                                                                  \
        {                                                                         \
          ::dup2(STDERR_FILENO, STDOUT_FILENO); /* failures show in the report */ \
          [&] { body; }();                                                        \
          std::fflush(nullptr);                                                   \
          std::_Exit(::testing::Test::HasFailure() ? 1 : 0);                      \
        },                                                                        \
        ::testing::ExitedWithCode(0), "");                                        \
  } while (false)
