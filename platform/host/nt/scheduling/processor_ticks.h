#pragma once

#include <cstdint>

#if !defined(__x86_64__) && !defined(__i386__)
#include <chrono>
#endif

namespace lidcam::host {

/// A count that grows steadily, at a rate of its own, and the same on all processors. Reading the clock takes several
/// times as long, too long for each kernel call.
inline std::uint64_t ProcessorTicks() {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_ia32_rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

}  // namespace lidcam::host
