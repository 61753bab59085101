#include "FileRecheck.h"

#include <atomic>

namespace platform::detail {
namespace {

using Clock = std::chrono::steady_clock;
std::atomic<Clock::rep> recheckTicks{
    std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)).count()};

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

std::optional<FileStamp> FileStamp::of(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return FileStamp{info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool FileStamp::operator==(const FileStamp& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         sameTime(modified, other.modified) && sameTime(changed, other.changed);
}

Clock::duration fileRecheckInterval() {
  return Clock::duration(recheckTicks.load(std::memory_order_relaxed));
}

void setFileRecheckInterval(Clock::duration interval) {
  recheckTicks.store(interval.count(), std::memory_order_relaxed);
}

}  // namespace platform::detail
