#pragma once

#include <mutex>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace lidcam::base {

/// A mutex that is free of charge while the process has a single machine thread, as with a simulation's fibers. For
/// registries of the whole process that each kernel call of a simulation looks into.
///
/// No machine thread may be started, or left to its end, while it is held.
class ProcessMutex {
 public:
  constexpr ProcessMutex() = default;
  ProcessMutex(const ProcessMutex&) = delete;
  ProcessMutex& operator=(const ProcessMutex&) = delete;
  ~ProcessMutex() = default;

  // Named as the standard library's lock guards expect.
  void lock() {
    if (HasOneThread()) return;
    mutex_.lock();
    isLocked_ = true;
  }
  void unlock() {
    if (!isLocked_) return;
    isLocked_ = false;
    mutex_.unlock();
  }

 private:
  // Only the one thread that there is can change it.
  [[nodiscard]] static bool HasOneThread() {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
  }

  std::mutex mutex_;
  bool isLocked_ = false;  ///< by this process's present or a former number of threads
};

}  // namespace lidcam::base
