#pragma once

#include <cstdint>

#include "driver/core/base/shared_value.h"

namespace lidcam {

/// The operating point in use, as AeTableEntry has it. Each field is whole; with two cameras
/// streaming the three may come from different rows.
struct AeOutputRecord {
  Shared<std::uint32_t> Exposure;   ///< frame path | frame path, of two cameras
  Shared<std::uint8_t> CoarseGain;  ///< frame path | frame path, of two cameras
  Shared<std::uint8_t> FineGain;    ///< frame path | frame path, of two cameras
};

// The state of the exposure loop exists once for the whole system: the frame paths of all cameras
// share it without a lock, and it outlives streams, so that a stream starts where the last one
// ended.

/// Calls still to pass before the next step.
extern constinit Shared<std::uint16_t> AeHoldOff;

/// Row of AeTable that is in force. Every camera creation sets it back to 30. For a moment within a
/// step it may lie outside the table.
extern constinit Shared<std::int32_t> AeIndex;

/// Row last chosen; zeros until the first step.
extern constinit AeOutputRecord AeOutput;

/// Target over measured luminance when a step was last computed, 1024 for 1.0. For readers of a
/// memory dump.
extern constinit Shared<std::uint32_t> AeRatio;

/// The luminance that the loop keeps, and how far from it a frame may be without a step.
inline constexpr std::uint32_t kTargetLuma = 88;
inline constexpr std::uint32_t kDeadBand = 8;

/// Moves AeIndex one step toward the target luminance, at most at every sixth call.
///
/// @param luma       average luminance of the frame, 0 to 255
/// @param output     receives the new row
/// @param lightMode  what bounds the index: LightModeNormal 54, LightModeDummy 76, other values 80.
///                   An index above a bound that has just fallen stays until the next step, which
///                   lowers it to the bound, whatever the step's direction
/// @return true if `output` has a row to be written to the sensor
/// @par Callable at any level
bool AutoExposureStep(std::uint32_t luma, AeOutputRecord& output, std::uint32_t lightMode);

}  // namespace lidcam
