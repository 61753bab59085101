// Small files the Linux providers keep in memory (os-release, the host's Info.plist): what
// identifies one version of such a file, how often it is looked at again, and the kept reading.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <string>

#include "platform/internal/ThreadAnnotations.h"

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

 private:
  std::optional<std::chrono::steady_clock::time_point> checkedAt_;
};

// A reading made from one small file (its text, or what parsing it gave), made again only when a
// stat shows another file, size or time stamp, and stat-ed at most once per recheck interval (at
// once when asked about another path). A missing file is a reading too: absent.
template <typename Reading>
class KeptFileReading {
 public:
  // `read(path)` makes the reading from the existing file at `path`; absent when it cannot.
  template <typename Read>
  std::optional<Reading> get(const std::string& path, Read&& read) {
    const auto now = std::chrono::steady_clock::now();
    {
      MutexLock lock(mutex_);
      if (path_ == path && !recheck_.isDue(now)) return reading_;
    }
    const std::optional<FileStamp> stamp = FileStamp::of(path);
    MutexLock lock(mutex_);
    if (path_ != path || stamp_ != stamp) {
      reading_ = stamp ? read(path) : std::nullopt;
      path_ = path;
      stamp_ = stamp;
    }
    recheck_.checked(now);
    return reading_;
  }

 private:
  Mutex mutex_;
  std::string path_ ZELNORA_GUARDED_BY(mutex_);  // empty before the first reading
  std::optional<FileStamp> stamp_ ZELNORA_GUARDED_BY(mutex_);
  std::optional<Reading> reading_ ZELNORA_GUARDED_BY(mutex_);
  RecheckTimer recheck_ ZELNORA_GUARDED_BY(mutex_);
};

}  // namespace platform::detail
