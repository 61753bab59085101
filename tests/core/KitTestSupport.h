// Shared pieces of the kit's tests: temporary directories, host bundles written to disk, a loopback
// configuration server, and running a scenario in a fresh process (a new app launch).
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

namespace kit_test {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zelnora-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

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

// A loopback server answering the configuration endpoint "/config/<key>" from a table; it counts
// and records every request it gets.
class ConfigServer {
 public:
  struct Answer {
    int status = 200;
    std::string body;
  };

  ConfigServer() {
    server_.Get(R"(/config/(.*))", [this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(mutex_);
      ++requests_;
      lastPath_ = req.path;
      lastAccept_ = req.get_header_value("Accept");
      auto it = answers_.find(req.matches[1]);
      const Answer answer = it != answers_.end() ? it->second : Answer{401, "{}"};
      res.status = answer.status;
      res.set_content(answer.body, "application/json");
    });
    // One request per connection: the kit's session keeps connections alive, and a server
    // waiting on an idle kept-alive connection would hold up its own shutdown.
    server_.set_keep_alive_max_count(1);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() before the accept loop runs would be lost and leave join() waiting forever.
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~ConfigServer() {
    server_.stop();
    thread_.join();
  }

  void answer(const std::string& key, Answer answer) {
    std::lock_guard lock(mutex_);
    answers_[key] = std::move(answer);
  }
  int port() const { return port_; }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }
  std::string configTemplate() const { return base() + "/config/{key}"; }
  int requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  std::string lastPath() const {
    std::lock_guard lock(mutex_);
    return lastPath_;
  }
  std::string lastAccept() const {
    std::lock_guard lock(mutex_);
    return lastAccept_;
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::map<std::string, Answer> answers_;  // guarded by mutex_
  int requests_ = 0;                       // guarded by mutex_
  std::string lastPath_, lastAccept_;      // guarded by mutex_
};

// A port on which nothing listens (bound, then closed).
inline int closedPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return ntohs(addr.sin_port);
}

// Accepts connections, reads what arrives, and resets each one (RST) without answering.
class ResettingServer {
 public:
  ResettingServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t len = sizeof addr;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    ::listen(listener_, 64);
    thread_ = std::thread([this] {
      while (true) {
        int fd = ::accept(listener_, nullptr, nullptr);
        if (fd < 0) return;
        char buffer[8192];
        (void)::recv(fd, buffer, sizeof buffer, 0);
        linger hard{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        ::close(fd);
      }
    });
  }
  ~ResettingServer() {
    ::shutdown(listener_, SHUT_RDWR);
    ::close(listener_);
    thread_.join();
  }
  int port() const { return port_; }

 private:
  int listener_ = -1;
  int port_ = 0;
  std::thread thread_;
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
