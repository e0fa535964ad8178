#pragma once

#include <cstddef>
#include <string>

namespace lidcam::host {

// Memory with marked bytes before and behind it, which tell writes beyond its ends when it is freed.
// Under AddressSanitizer the marks are poisoned besides, so that it tells at once.

/// What memory of `size` bytes takes with its marks; 0 if there is no such number.
[[nodiscard]] std::size_t GuardedBytes(std::size_t size);

/// Lays the marks and fills what is between them with bytes that aren't zero.
///
/// @param start  GuardedBytes(size) bytes, aligned to 16
/// @return the memory between the marks, aligned to 16
[[nodiscard]] void* LayGuards(void* start, std::size_t size);

/// What LayGuards() was given.
[[nodiscard]] void* StartOfGuarded(void* memory);

/// The other way round: the memory that begins there.
[[nodiscard]] const void* MemoryBehindGuard(const void* start);

/// @return what was overwritten ("byte 24 behind its end"), empty if nothing was
[[nodiscard]] std::string FindOverrun(const void* memory, std::size_t size);

}  // namespace lidcam::host
