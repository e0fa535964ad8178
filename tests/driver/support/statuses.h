#pragma once

// The statuses that tests pass to the driver and expect from it, as numbers: callers compare the
// numbers, not a header's names.

#include "platform/kernel.h"

namespace lidcam::test {

inline constexpr auto kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);
inline constexpr auto kInvalid = static_cast<NTSTATUS>(0xC000000D);
inline constexpr auto kNoMemory = static_cast<NTSTATUS>(0xC000009A);
inline constexpr auto kGone = static_cast<NTSTATUS>(0xC000009C);  // the device is not connected
inline constexpr auto kIoError = static_cast<NTSTATUS>(0xC0000185);
inline constexpr auto kNoMatch = static_cast<NTSTATUS>(0xC0000272);

}  // namespace lidcam::test
