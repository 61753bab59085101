// Small files the Linux providers keep in memory (os-release, the host's Info.plist): what
// identifies one version of such a file, and how often it is looked at again.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <string>

namespace platform::detail {

// What identifies one version of a file without reading it.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  static std::optional<FileStamp> of(const std::string& path);
  bool operator==(const FileStamp& other) const;
};

// A file kept in memory is trusted for this long before its stamp is read again. On a phone
// neither the OS version nor the app's Info.plist changes while the app runs; here they can, and
// a stat per use cost a report more than all its other file reads together. One second by default.
std::chrono::steady_clock::duration fileRecheckInterval();
void setFileRecheckInterval(std::chrono::steady_clock::duration interval);

// The moments a kept file was last looked at; not thread-safe on its own (callers hold a lock).
class RecheckTimer {
 public:
  bool isDue(std::chrono::steady_clock::time_point now) const {
    return !checkedAt_ || now - *checkedAt_ >= fileRecheckInterval();
  }
  void checked(std::chrono::steady_clock::time_point now) { checkedAt_ = now; }
  void reset() { checkedAt_.reset(); }

 private:
  std::optional<std::chrono::steady_clock::time_point> checkedAt_;
};

}  // namespace platform::detail
