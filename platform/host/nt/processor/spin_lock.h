#pragma once

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/calls/call_rules.h"

namespace lidcam::host {

/// Takes a lock without asking whether a driver initialised it: for those of the kernel's own. The
/// caller is at DISPATCH_LEVEL.
void AcquireKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock);

/// Releases it; the level stays.
void ReleaseKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock);

}  // namespace lidcam::host
