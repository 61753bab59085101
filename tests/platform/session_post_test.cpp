// A completion posted to the URL session runs on the session's thread (never inside the call),
// waitUntilIdle waits for it, and one that throws does not stop the ones after it.
#include <atomic>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "platform/Services.h"

TEST(SessionPost, RunsOnTheSessionThreadAndIsCountedByWaitUntilIdle) {
  std::atomic<int> runs{0};
  std::atomic<bool> onCallersThread{false};
  platform::urlSession().post([] { throw std::runtime_error("a host's callback failed"); });
  for (int i = 0; i < 3; ++i) {
    platform::urlSession().post([&, caller = std::this_thread::get_id()] {
      onCallersThread = onCallersThread || std::this_thread::get_id() == caller;
      runs.fetch_add(1);
    });
  }
  ASSERT_TRUE(platform::urlSession().waitUntilIdle(std::chrono::seconds(10)));
  EXPECT_EQ(runs.load(), 3);
  EXPECT_FALSE(onCallersThread.load());
}
