#pragma once

#include <cstddef>
#include <string>

namespace lidcam::host {

// Memory with guard bytes before and behind it, which show writes beyond its ends when it is freed.
// Under AddressSanitizer the guards are poisoned too, so that it reports such a write at once.

/// Size of a block of `size` bytes with its guards; 0 if it can't be represented.
[[nodiscard]] std::size_t GuardedBytes(std::size_t size);

/// Bytes of the guard behind a block.
[[nodiscard]] std::size_t GuardBytesBehind();

/// Writes the guards and fills the memory between them with bytes that aren't zero.
///
/// @param start   GuardedBytes(size) bytes, aligned to 16
/// @param behind  bytes of the guard behind it that exist: fewer ahead of a page that isn't accessible
/// @return the memory between the guards, aligned to 16
[[nodiscard]] void* LayGuards(void* start, std::size_t size, std::size_t behind);

/// The `start` that LayGuards() was called with.
[[nodiscard]] void* StartOfGuarded(void* memory);

/// The reverse: the memory behind the guard at `start`.
[[nodiscard]] const void* MemoryBehindGuard(const void* start);

/// @param behind  as for LayGuards()
/// @return the first overwritten guard byte ("byte 24 behind its end"), empty if none was
[[nodiscard]] std::string FindOverrun(const void* memory, std::size_t size, std::size_t behind);

}  // namespace lidcam::host
