#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "driver/core/record/camera_context.h"

namespace lidcam::test {

/// Gives every byte behind the callbacks the same value, so that each store into the record shows,
/// zeros too. The two busy flags are cleared: a wait for them would never end.
inline void FillRecord(CameraContext& context, std::uint8_t value) {
  auto* const bytes = reinterpret_cast<std::uint8_t*>(&context);
  std::fill(bytes + offsetof(CameraContext, RequestedWidth), bytes + sizeof(context), value);
  context.AppRegisterBusy = 0;
  context.DriverRegisterBusy = 0;
}

/// The record as it stands in memory, to be compared with itself at another time.
inline std::vector<std::uint8_t> BytesOf(const CameraContext& context) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&context);
  return {bytes, bytes + sizeof(context)};
}

inline std::vector<std::uint8_t> BytesOf(const RegisterSetTable& table) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&table);
  return {bytes, bytes + sizeof(table)};
}

/// The same with zeros for the three register set tables.
inline std::vector<std::uint8_t> BytesAroundTables(const CameraContext& context) {
  std::vector<std::uint8_t> bytes = BytesOf(context);
  for (const std::size_t table :
       {offsetof(CameraContext, SetupRegisters), offsetof(CameraContext, NormalRegisters),
        offsetof(CameraContext, LowLightRegisters)}) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(table);
    std::fill(first, first + sizeof(RegisterSetTable), std::uint8_t{0});
  }
  return bytes;
}

}  // namespace lidcam::test
