#pragma once

#include <atomic>
#include <cstdint>

namespace lidcam::host {

// Switch points in addition to those at the beginning of each kernel call: places between two calls
// where a processor may be preempted as well. Only simulations with
// SimulationOptions::HasPreemptionPoints have them.

enum class PreemptionKind : std::uint8_t {
  Load,     ///< ahead of a load of a shared field
  Store,    ///< ahead of a store to one
  Release,  ///< behind a kernel call that wakes a thread, releases a lock or hands something over
};

/// Number of simulations with preemption points.
extern constinit std::atomic<int> g_preemptiveSimulations;

/// Lets other threads of the caller's world run.
///
/// @param name    the call; "load" or "store" of a shared field
/// @param object  the call's object, or the field; not accessed
/// @par Callable in destructors: never throws. A thread that must stop does so at its next call.
void PreemptAt(const char* name, const void* object, PreemptionKind kind) noexcept;

inline void PreemptAheadOfLoad(const void* field) {
  if (g_preemptiveSimulations.load(std::memory_order_relaxed) == 0) [[likely]]
    return;
  PreemptAt("load", field, PreemptionKind::Load);
}

inline void PreemptAheadOfStore(const void* field) {
  if (g_preemptiveSimulations.load(std::memory_order_relaxed) == 0) [[likely]]
    return;
  PreemptAt("store", field, PreemptionKind::Store);
}

/// Declared in a kernel call, ahead of its guards: a preemption point behind the call.
class PreemptionBehind {
 public:
  PreemptionBehind(const char* call, const void* object) : call_(call), object_(object) {}
  PreemptionBehind(const PreemptionBehind&) = delete;
  PreemptionBehind& operator=(const PreemptionBehind&) = delete;
  ~PreemptionBehind() {
    if (g_preemptiveSimulations.load(std::memory_order_relaxed) == 0) [[likely]]
      return;
    PreemptAt(call_, object_, PreemptionKind::Release);
  }

 private:
  const char* const call_;
  const void* const object_;
};

}  // namespace lidcam::host
