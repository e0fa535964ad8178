#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/core/base/shared_value.h"
#include "platform/kernel.h"

namespace lidcam {

/// Memory with several users: the last release frees it, together with the IRP that belongs to it.
///
/// A stream releases its transfers and raw buffers in a fixed order, while the USB stack may still
/// fill one, the frame thread walk it, or an application's frame be copied out of it. This record
/// lies behind the memory, in the same allocation.
struct ReferenceCountedMemory {
  void* Block;       ///< the memory; zero-filled when allocated
  std::size_t Size;  ///< bytes at `Block`
  PIRP Irp;          ///< freed before the memory; may be null
  void* Owner;       ///< for the owner's use
  /// owner | completions, frame thread: the owner has released it; no new use may begin
  Shared<std::uint8_t> GivenUp;
  volatile LONG Holds;
  volatile LONG Completions;  ///< completion routines that are using the owner's records
};

/// Allocates nonpaged memory with one reference, the caller's.
///
/// @return null if the pool has no room, or `size` is 0
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] ReferenceCountedMemory* AllocateReferenceCountedMemory(std::size_t size);

/// Adds a reference. The caller has one already, or keeps the owner from releasing its own
/// meanwhile.
/// @par Callable at any level
void Hold(ReferenceCountedMemory& memory);

/// Releases a reference; the last release frees IRP and memory.
_IRQL_requires_max_(DISPATCH_LEVEL)
void LetGo(ReferenceCountedMemory& memory);

/// Releases the owner's reference and sets GivenUp.
_IRQL_requires_max_(DISPATCH_LEVEL)
void GiveUp(ReferenceCountedMemory& memory);

}  // namespace lidcam
