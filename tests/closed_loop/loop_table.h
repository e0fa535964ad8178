#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "library/frames/frame_row.h"

namespace lidcam::app {

/// One run of the table: constant light, mains with the setting that matches it, first index.
struct LoopCase {
  double Lux = 300;
  unsigned MainsHertz = 50;
  std::int32_t StartIndex = 30;
};

/// How the loop came to rest.
enum class Rest {
  None,         ///< not at rest within kLongestWait frames
  InDeadBand,   ///< luminance 80 to 96
  AtTheBottom,  ///< too bright for row 0
  AtTheTop,     ///< too dark for the last row that the light mode allows
};

/// The outcome of one run.
struct LoopOutcome {
  Rest How = Rest::None;
  std::size_t StandsAt = 0;  ///< first frame of the rest, counted from 1
  FrameRow AtRest;  ///< the last frame of the rest's kFramesOfRest: all is committed by then
  // Within the kWatchedFrames frames from there, or after kLongestWait without a rest:
  std::uint32_t Steps = 0;
  std::uint32_t Transitions = 0;
  std::int32_t LowestIndex = 0;
  std::int32_t HighestIndex = 0;
  std::uint32_t LowestLuma = 0;
  std::uint32_t HighestLuma = 0;
  std::vector<std::uint32_t> States;  ///< in the order in which they were first seen
};

/// The loop is at rest from a frame on if during this many frames it takes no step and the light
/// state does not change. A gain may wait 42 frames for its commit: a shorter period may be no
/// rest.
inline constexpr std::size_t kFramesOfRest = 60;
inline constexpr std::size_t kLongestWait = 600;
inline constexpr std::size_t kWatchedFrames = 600;

/// Four decades of light in thirds of a decade, 0.46 lx to 4600 lx, for both mains and for the first
/// indexes 0, 30 and 80.
[[nodiscard]] std::vector<LoopCase> AllLoopCases();

/// Runs one case from the state after loading the driver, except for the index.
[[nodiscard]] LoopOutcome RunLoopCase(const LoopCase& loopCase);

/// Heading of the table, two lines.
[[nodiscard]] std::string LoopTableHeading();

/// One line of the table.
[[nodiscard]] std::string LoopTableLine(const LoopCase& loopCase, const LoopOutcome& outcome);

}  // namespace lidcam::app
