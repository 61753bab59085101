// A URL session for tests that wraps a real one: it records every request and can fail tasks
// with a chosen transport error instead of sending them.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "platform/UrlSession.h"

namespace platform::testing {

class FaultInjectingSession final : public URLSession {
 public:
  // `real` sends the requests that are not failed; it must outlive this session.
  explicit FaultInjectingSession(URLSession& real);
  // Runs the failures still queued first.
  ~FaultInjectingSession() override;

  // Every following task completes with (no body, no response, `error`) without being sent, on
  // a background thread of this session's, one at a time in call order. std::nullopt sends tasks
  // through again.
  void failWith(std::optional<Error> error);
  // Every request handed to `dataTask`, in call order, as given.
  std::vector<URLRequest> requests() const;

  void dataTask(URLRequest request, DataTaskCompletion completion) override;
  // Idle when both the failures queued here and the real session's tasks are done.
  bool waitUntilIdle(std::chrono::milliseconds limit) override;

 private:
  URLSession& real_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Error> failure_;      // guarded by mutex_
  std::vector<URLRequest> requests_;  // guarded by mutex_
  std::size_t failuresPending_ = 0;   // guarded by mutex_
  std::thread last_;                  // the latest failure's thread; guarded by mutex_
};

}  // namespace platform::testing
