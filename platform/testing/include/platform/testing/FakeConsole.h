// A console that records every piece written, for asserting the kit's exact output.
#pragma once

#include <string>
#include <vector>

#include "platform/Console.h"
#include "platform/internal/ThreadAnnotations.h"

namespace platform::testing {

class FakeConsole final : public Console {
 public:
  void write(std::string_view text) override {
    MutexLock lock(mutex_);
    pieces_.emplace_back(text);
  }
  // Every piece in write order.
  std::vector<std::string> pieces() const {
    MutexLock lock(mutex_);
    return pieces_;
  }
  // All pieces concatenated.
  std::string text() const {
    std::string all;
    for (const auto& piece : pieces()) all += piece;
    return all;
  }

 private:
  mutable Mutex mutex_;
  std::vector<std::string> pieces_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace platform::testing
