// A scratch directory for one test, removed with everything in it when the test ends.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace test_support {

class TempDirectory {
 public:
  TempDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zelnora-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
  }
  ~TempDirectory() {
    if (path_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes `content` byte for byte to the file `name`, replacing it; returns the file's path.
  std::string write(std::string_view name, std::string_view content) const {
    const std::string target = file(name);
    std::ofstream(target, std::ios::binary | std::ios::trunc) << content;
    return target;
  }

  // The directory `name` inside this one, created if missing.
  std::string subdirectory(std::string_view name) const {
    const std::string target = file(name);
    std::error_code ignored;
    std::filesystem::create_directories(target, ignored);
    return target;
  }

 private:
  std::string path_;
};

}  // namespace test_support
