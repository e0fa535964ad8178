#pragma once

#include <cstdint>

namespace lidcam::host {

/// How often the floating-point state was saved and restored, by all threads together.
struct FloatingPointUse {
  std::uint32_t Saves = 0;
  std::uint32_t Restores = 0;
};

[[nodiscard]] FloatingPointUse FloatingPointUseSoFar();

/// Makes the `countdown`-th save from now on fail, once: 1 is the very next. 0 turns it off.
void FailFloatingPointSave(std::uint32_t countdown);

}  // namespace lidcam::host
