#pragma once

#include "base/inline_mutex.h"

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
    if (!HasOneThread()) mutex_.lock();
  }
  void unlock() {
    // It isn't locked if the process had one thread then.
    if (mutex_.IsLocked()) mutex_.unlock();
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

  InlineMutex mutex_;
};

}  // namespace lidcam::base
