#pragma once

#include <cstddef>
#include <string>

namespace lidcam::host {

/// Memory with marked bytes before and behind it, which tell writes beyond its ends when it is freed.
/// Under AddressSanitizer the marks are poisoned besides, so that it tells at once.
///
/// @return aligned to 16 bytes, filled with bytes that aren't zero; null if there is no memory
[[nodiscard]] void* AllocateGuarded(std::size_t size);

/// @return what was overwritten ("byte 24 behind its end"), empty if nothing was
[[nodiscard]] std::string FindOverrun(const void* memory, std::size_t size);

void FreeGuarded(void* memory);

}  // namespace lidcam::host
