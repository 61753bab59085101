// Shared set-up of the loopback tests: the servers the process's base URLs point to, a recorder
// of completions, and a fixture with a recording console and an in-memory preferences store.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Services.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "support/RecordingServer.h"
#include "support/ResettingServer.h"
#include "zelnora_core/APIService.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_core::testing {

// The base URLs are read once per process, so every loopback test of a process shares these: the
// API base is the recording server, the gateway base a server that resets every connection.
struct SharedServers {
  test_support::RecordingServer api;
  test_support::ResettingServer gateway;
};
inline SharedServers& sharedServers() {
  static auto* servers = new SharedServers;  // lives until exit, like the cached base URLs
  return *servers;
}

struct Completion {
  std::optional<platform::Bytes> body;
  std::optional<platform::HTTPURLResponse> response;
  std::optional<platform::Error> error;
  std::thread::id thread;
};

class CompletionRecorder {
 public:
  APICompletion callback() {
    return [this](std::optional<platform::Bytes> body,
                  std::optional<platform::HTTPURLResponse> response,
                  std::optional<platform::Error> error) {
      std::lock_guard lock(mutex_);
      calls_.push_back(
          {std::move(body), std::move(response), std::move(error), std::this_thread::get_id()});
      changed_.notify_all();
    };
  }
  // Waits (at most `limit`) until `count` completions have arrived; true when they have.
  bool waitFor(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return calls_.size() >= count; });
  }
  std::vector<Completion> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Completion> calls_;  // guarded by mutex_
};

class LoopbackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    servers_.api.clear();
    ZAPreferencesUtil::saveApiConfig({"", servers_.api.base(), servers_.gateway.base()});
    ASSERT_EQ(urlString(APIEndpoint::sendAppTracking), servers_.api.base() + "/tracker/app")
        << "another test of this process stored different base URLs first";
  }
  void TearDown() override {
    EXPECT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(30)));
  }

  // Pieces the console received that are not part of a traffic dump.
  std::vector<std::string> diagnosticLines() const {
    std::vector<std::string> lines;
    const auto pieces = console_.pieces();
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      if (pieces[i].find(" - - - - - - - - - - ") != std::string::npos) {
        if (pieces[i].find("END") == std::string::npos) ++i;  // skip the dump's text
        continue;
      }
      lines.push_back(pieces[i]);
    }
    return lines;
  }
  std::size_t piecesContaining(std::string_view text) const {
    std::size_t count = 0;
    for (const auto& piece : console_.pieces()) count += piece.find(text) != std::string::npos;
    return count;
  }

  SharedServers& servers_ = sharedServers();
  platform::testing::FakeConsole console_;
  platform::testing::InMemoryUserDefaults store_;
  platform::testing::ScopedServices guard_{[this](platform::Services& s) {
    s.console = &console_;
    s.userDefaults = &store_;
  }};
};

}  // namespace zelnora_core::testing
