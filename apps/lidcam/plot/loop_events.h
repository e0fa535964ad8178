#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "apps/lidcam/frames/frame_log.h"

namespace lidcam::app {

/// What may happen to the exposure loop at a frame, in the order of a drawing's lanes.
enum class LoopEventKind : std::uint8_t {
  LightChange,  ///< of the scene
  Transition,   ///< of the light state
  StepUp,       ///< of the index
  StepDown,
  Commit,
  Refused,  ///< a register access met the application on the bus
};

inline constexpr std::size_t kLoopEventKinds = 6;

struct LoopEvent {
  LoopEventKind Kind;
  double Seconds;
};

/// All that happened, in the order of the frames. The loop begins in Initial, at a new camera's index.
[[nodiscard]] std::vector<LoopEvent> FindLoopEvents(std::span<const FrameRow> rows);

/// A time in one light state.
struct StateStay {
  std::uint32_t State;
  double From;
  double To;
};

/// @param rows  at least one
[[nodiscard]] std::vector<StateStay> FindStateStays(std::span<const FrameRow> rows);

}  // namespace lidcam::app
