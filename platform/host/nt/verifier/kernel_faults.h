#pragma once

#include <cstdint>
#include <optional>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// Makes the `countdown`-th call of the kernel function `name` from now on fail, once: 1 is the
/// very next. 0 turns it off. All threads count together; each function has its own count.
///
/// A function that can't fail, or that has no fault point, is a violation: a test would wait for
/// its failure in vain.
///
/// @param name    "PsCreateSystemThread", "IoAllocateWorkItem", ...
/// @param status  the call's result; a call that returns a pointer returns null instead
void FailKernelCall(const char* name, std::uint32_t countdown, NTSTATUS status);

/// Whether a failure of FailKernelCall() is still to come.
[[nodiscard]] bool IsKernelCallFaultToCome();

/// Turns all faults off.
void ClearKernelCallFaults();

/// Counts a call of `name`, which must be in the table of fault points.
///
/// @return the status of the injected fault, if it is due
[[nodiscard]] std::optional<NTSTATUS> KernelCallFault(const char* name);

}  // namespace lidcam::host
