#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/core/base/shared_value.h"
#include "platform/kernel.h"

namespace lidcam {

/// Memory that several parties use and none of them may free under another: it goes, with the
/// request that belongs to it, when the last one lets go.
///
/// A stream gives its transfers and raw buffers up in a fixed order, while the USB stack may still
/// fill one, the frame thread walk it, or an application's frame be copied out of it. The record
/// stands behind the memory itself, in the same allocation.
struct ReferenceCountedMemory {
  void* Block;       ///< the memory; zero-filled when allocated
  std::size_t Size;  ///< bytes at `Block`
  PIRP Irp;          ///< freed before the memory; may be null
  void* Owner;       ///< whatever the owner wants to find again
  /// owner | completions, frame thread: nobody is to begin anything with it
  Shared<std::uint8_t> GivenUp;
  volatile LONG Holds;
  volatile LONG Completions;  ///< completion routines that work on the owner's records at present
};

/// Takes nonpaged memory, held once, by the caller.
///
/// @return null if the pool has no room, or `size` none
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] ReferenceCountedMemory* AllocateReferenceCountedMemory(std::size_t size);

/// Holds it once more. The caller holds it already, or keeps the owner from letting go meanwhile.
/// @par Callable at any level
void Hold(ReferenceCountedMemory& memory);

/// Lets go once: the last one frees request and memory.
_IRQL_requires_max_(DISPATCH_LEVEL)
void LetGo(ReferenceCountedMemory& memory);

/// The owner's letting go: from now on GivenUp.
_IRQL_requires_max_(DISPATCH_LEVEL)
void GiveUp(ReferenceCountedMemory& memory);

}  // namespace lidcam
