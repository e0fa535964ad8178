#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/core/record/control_table.h"
#include "platform/kernel.h"

namespace lidcam {

/// The only interface from a property to the core, 32-bit words in this order.
///
/// The names give the words' meaning in most codes; the code for the still sizes uses all words
/// from `Value2` on as a count and a list.
struct ControlRecord {
  std::uint32_t Code;  ///< a lidcam::ControlCode, or any other number
  std::int32_t Value;
  std::int32_t Value2;
  std::uint32_t Flags;  ///< kControlFlagAuto or kControlFlagManual, and trigger bits on code 23
  std::uint32_t Caps;
  std::uint32_t Words[6];  ///< still sizes only
};
static_assert(sizeof(ControlRecord) == 44);

inline constexpr std::uint32_t kControlFlagAuto = 1;
inline constexpr std::uint32_t kControlFlagManual = 2;

/// Result of an unknown control code.
inline constexpr Status kUnknownControlCode = -1;

/// Stores a setting and runs its hardware step.
///
/// kControls lists what each code stores and which step it runs.
/// @return 0, kUnknownControlCode, or what the step returned
_IRQL_requires_max_(PASSIVE_LEVEL)
Status SetControl(CameraContext& context, const ControlRecord& record);

/// Reads a value from the record; only the raw register code reads the hardware.
///
/// @param record  `Code` (and for the raw register `Value`) in, the answer out
Status GetControl(CameraContext& context, ControlRecord& record);

}  // namespace lidcam
