#pragma once

/// Precedes each access to a field that threads share without a lock: nothing in a Windows image.
/// On the host it is a switch point of a simulation.

#if defined(_WIN32)

namespace lidcam {

inline void BeforeSharedLoad(const void*) {}
inline void BeforeSharedStore(const void*) {}

}  // namespace lidcam

#else

#include "platform/host/nt/declarations/preemption_points.h"

namespace lidcam {

inline void BeforeSharedLoad(const void* field) {
  host::PreemptAheadOfLoad(field);
}
inline void BeforeSharedStore(const void* field) {
  host::PreemptAheadOfStore(field);
}

}  // namespace lidcam

#endif
