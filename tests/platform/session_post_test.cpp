// A completion posted to the URL session: it runs once on the session's thread (never inside the
// call), waitUntilIdle waits for it, and one that throws does not stop the ones after it.
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "platform/Services.h"

namespace {

TEST(SessionPost, RunsOnTheSessionThreadAndIsCountedByWaitUntilIdle) {
  platform::URLSession& session = platform::urlSession();
  std::atomic<int> runs{0};
  std::atomic<bool> onCallersThread{false};
  session.post([] { throw std::runtime_error("a host's callback failed"); });
  for (int i = 0; i < 3; ++i) {
    session.post([&, caller = std::this_thread::get_id()] {
      onCallersThread = onCallersThread || std::this_thread::get_id() == caller;
      runs.fetch_add(1);
    });
  }
  ASSERT_TRUE(session.waitUntilIdle(std::chrono::seconds(10)));
  EXPECT_EQ(runs.load(), 3);
  EXPECT_FALSE(onCallersThread.load());
}

}  // namespace
