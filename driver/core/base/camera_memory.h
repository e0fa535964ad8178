#pragma once

#include <cstddef>

#include "platform/kernel.h"

namespace lidcam {

/// Takes nonpaged memory from the platform's pool, pool type 0, with the tag "Wdm ".
///
/// The content is undefined. Null when the pool has no room.
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] void* AllocateCameraMemory(std::size_t size);

/// Gives memory of AllocateCameraMemory() back. Null does nothing.
_IRQL_requires_max_(DISPATCH_LEVEL)
void FreeCameraMemory(void* memory);

/// Clears a block.
/// @par Callable at any level
void ZeroCameraMemory(void* memory, std::size_t size);

}  // namespace lidcam
