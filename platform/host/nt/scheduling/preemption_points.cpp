#include "platform/host/nt/declarations/preemption_points.h"

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {

constinit std::atomic<int> g_preemptiveSimulations{0};

void PreemptAt(const char* name, const void* object, PreemptionKind kind) noexcept {
  Thread* const self = FindCurrentThread();
  if (self != nullptr) self->World.PreemptionPoint(*self, {name, object}, kind);
}

}  // namespace lidcam::host
