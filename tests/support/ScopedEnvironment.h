// Sets or clears an environment variable for one scope and puts the previous value back after.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace test_support {

class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
    if (const char* old = ::getenv(name_.c_str())) previous_ = old;
    apply(value);
  }
  ~ScopedEnvironment() { apply(previous_); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  void apply(const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name_.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace test_support
