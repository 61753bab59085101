#include "platform/testing/FaultInjectingSession.h"

#include <algorithm>

namespace platform::testing {

FaultInjectingSession::FaultInjectingSession(URLSession& real)
    : real_(real), worker_([this] { runFailures(); }) {}

FaultInjectingSession::~FaultInjectingSession() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  worker_.join();
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
  failures_.push_back([completion = std::move(completion), error = *failure_] {
    completion(std::nullopt, std::nullopt, error);
  });
  lock.unlock();
  changed_.notify_all();
}

bool FaultInjectingSession::waitUntilIdle(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  {
    std::unique_lock lock(mutex_);
    const bool drained = changed_.wait_until(
        lock, deadline, [this] { return failures_.empty() && failuresRunning_ == 0; });
    if (!drained) return false;
  }
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return real_.waitUntilIdle(std::max(left, std::chrono::milliseconds(0)));
}

void FaultInjectingSession::runFailures() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !failures_.empty(); });
    if (failures_.empty()) return;  // stopping, nothing left
    auto failure = std::move(failures_.front());
    failures_.pop_front();
    ++failuresRunning_;
    lock.unlock();
    try {
      failure();
    } catch (...) {
      // Like the real session: a throwing completion does not stop later ones.
    }
    failure = nullptr;  // release what the completion captured before reporting it done
    lock.lock();
    --failuresRunning_;
    changed_.notify_all();
  }
}

}  // namespace platform::testing
