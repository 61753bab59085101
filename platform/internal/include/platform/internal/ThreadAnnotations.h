/// \file
/// Internal: clang's thread-safety annotations and a mutex they understand. With clang and
/// -Wthread-safety, touching a ZELNORA_GUARDED_BY member without its mutex is a compile error;
/// other compilers see plain code. libstdc++'s std::mutex carries no annotations, hence Mutex.
///
///   platform::Mutex mutex_;
///   int count_ ZELNORA_GUARDED_BY(mutex_) = 0;
///   std::condition_variable_any changed_;
///   ...
///   platform::MutexLock lock(mutex_);
///   while (count_ == 0) changed_.wait(mutex_);
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define ZELNORA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZELNORA_THREAD_ANNOTATION(x)
#endif

#define ZELNORA_CAPABILITY(x) ZELNORA_THREAD_ANNOTATION(capability(x))
#define ZELNORA_SCOPED_CAPABILITY ZELNORA_THREAD_ANNOTATION(scoped_lockable)
#define ZELNORA_GUARDED_BY(x) ZELNORA_THREAD_ANNOTATION(guarded_by(x))
#define ZELNORA_PT_GUARDED_BY(x) ZELNORA_THREAD_ANNOTATION(pt_guarded_by(x))
#define ZELNORA_REQUIRES(...) ZELNORA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZELNORA_ACQUIRE(...) ZELNORA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZELNORA_RELEASE(...) ZELNORA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZELNORA_EXCLUDES(...) ZELNORA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZELNORA_NO_THREAD_SAFETY_ANALYSIS ZELNORA_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace platform {

/// A std::mutex the analysis can follow. BasicLockable, so std::condition_variable_any waits on
/// it directly.
class ZELNORA_CAPABILITY("mutex") Mutex {
 public:
  void lock() ZELNORA_ACQUIRE() { mutex_.lock(); }
  void unlock() ZELNORA_RELEASE() { mutex_.unlock(); }
  bool try_lock() ZELNORA_THREAD_ANNOTATION(try_acquire_capability(true)) {
    return mutex_.try_lock();
  }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for the scope.
class ZELNORA_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZELNORA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() ZELNORA_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// Waits on `changed` until `done()` holds or `deadline` passes; returns `done()`. The caller
/// holds `mutex`, and `done` (annotated as needing that mutex) reads what it guards. The analysis
/// cannot tie `done`'s mutex to the one handed in here, so this body alone opts out; callers are
/// still checked for holding `mutex`.
template <class Done>
bool waitUntil(std::condition_variable_any& changed, Mutex& mutex,
               std::chrono::steady_clock::time_point deadline, Done done)
    ZELNORA_REQUIRES(mutex) ZELNORA_NO_THREAD_SAFETY_ANALYSIS {
  while (!done()) {
    if (changed.wait_until(mutex, deadline) == std::cv_status::timeout) return done();
  }
  return true;
}

}  // namespace platform
