#pragma once

#include "platform/kernel.h"

namespace lidcam {

/// What a change of the pin's state asks for.
enum class PinStep {
  Refuse,   ///< no such state
  Nothing,  ///< success without a step
  Stop,     ///< release whatever there is: stream, slot, clock
  Acquire,  ///< slot, stream, clock; counts anew
  Pause,
  Resume,  ///< run a stream that was paused: counts go on
  Start,   ///< run a stream: counts anew
};

/// The state table of the pin. Any level, no side effects.
///
/// The way up through pause is no step, and neither is the way down through acquire: what acquire
/// prepared runs at once, and everything is undone at stop. A run of a device without power is
/// swallowed.
///
/// @param to           any number; above KSSTATE_RUN there is no state
/// @param streamState  what became of the stream: KSSTATE_STOP for one that never ran, too
PinStep StepFor(KSSTATE to, KSSTATE from, KSSTATE streamState, DEVICE_POWER_STATE power);

}  // namespace lidcam
