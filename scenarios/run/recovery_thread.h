#pragma once

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::scenarios {

/// Whether a recovery runs on this thread: it is the driver's only work item.
[[nodiscard]] inline bool IsOfRecovery(const host::Thread& thread) {
  return thread.Name.starts_with("worker");
}

}  // namespace lidcam::scenarios
