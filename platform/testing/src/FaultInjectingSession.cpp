#include "platform/testing/FaultInjectingSession.h"

#include <algorithm>

namespace platform::testing {

FaultInjectingSession::FaultInjectingSession(URLSession& real) : real_(real) {}

FaultInjectingSession::~FaultInjectingSession() {
  std::unique_lock lock(mutex_);
  std::thread last = std::move(last_);
  lock.unlock();
  if (last.joinable()) last.join();  // each failure's thread first joins the one before it
}

void FaultInjectingSession::failWith(std::optional<Error> error) {
  std::lock_guard lock(mutex_);
  failure_ = std::move(error);
}

std::vector<URLRequest> FaultInjectingSession::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void FaultInjectingSession::dataTask(URLRequest request, DataTaskCompletion completion) {
  std::unique_lock lock(mutex_);
  requests_.push_back(request);
  if (!failure_) {
    lock.unlock();
    real_.dataTask(std::move(request), std::move(completion));
    return;
  }
  ++failuresPending_;
  last_ = std::thread([this, completion = std::move(completion), error = *failure_,
                       previous = std::move(last_)]() mutable {
    if (previous.joinable()) previous.join();  // one at a time, in call order, like the real one
    try {
      completion(std::nullopt, std::nullopt, error);
    } catch (...) {
      // Like the real session: a throwing completion does not stop later ones.
    }
    completion = nullptr;  // release what the completion captured before reporting it done
    std::lock_guard done(mutex_);
    --failuresPending_;
    changed_.notify_all();
  });
}

bool FaultInjectingSession::waitUntilIdle(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, deadline, [this] { return failuresPending_ == 0; }))
      return false;
  }
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return real_.waitUntilIdle(std::max(left, std::chrono::milliseconds(0)));
}

}  // namespace platform::testing
