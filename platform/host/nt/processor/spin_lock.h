#pragma once

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/calls/call_rules.h"

namespace lidcam::host {

/// Acquires a lock without the check that a driver initialised it: for the kernel's own locks. The
/// caller is at DISPATCH_LEVEL.
void AcquireKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock);

/// Releases it; the level is unchanged.
void ReleaseKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock);

}  // namespace lidcam::host
