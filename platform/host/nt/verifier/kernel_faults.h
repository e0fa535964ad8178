#pragma once

#include <cstdint>
#include <optional>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// Lets the `countdown`-th call of the kernel function `name` from now on fail, once: 1 is the very
/// next. 0 turns it off. All threads count together; each function counts for itself.
///
/// A function that can't fail, or that nobody gave a fault point, is a violation: a test would wait
/// for its failure in vain.
///
/// @param name    "PsCreateSystemThread", "IoAllocateWorkItem", ...
/// @param status  what the call gives; one that gives a pointer gives null instead
void FailKernelCall(const char* name, std::uint32_t countdown, NTSTATUS status);

/// A failure that FailKernelCall() asked for is still to come.
[[nodiscard]] bool IsKernelCallFaultToCome();

/// Turns all of them off.
void ClearKernelCallFaults();

/// Counts a call of `name`, which must stand in the table of fault points.
///
/// @return the status that it is to fail with, if its turn has come
[[nodiscard]] std::optional<NTSTATUS> KernelCallFault(const char* name);

}  // namespace lidcam::host
