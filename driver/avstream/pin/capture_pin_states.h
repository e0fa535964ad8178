#pragma once

#include "platform/kernel.h"

namespace lidcam {

/// The step that a change of the pin's state needs.
enum class PinStep {
  Refuse,   ///< no such state
  Nothing,  ///< success without a step
  Stop,     ///< release stream, slot and clock, as far as held
  Acquire,  ///< slot, stream, clock; resets the counts
  Pause,
  Resume,  ///< run a paused stream: the counts go on
  Start,   ///< run a stream: resets the counts
};

/// The state table of the pin. Any level, no side effects.
///
/// Neither the change up to pause nor the one down to acquire needs a step: what acquire prepared
/// runs at once, and everything is undone at stop. A run of a device without power succeeds without
/// a step.
///
/// @param to           any number; above KSSTATE_RUN it is refused
/// @param streamState  state of the stream; KSSTATE_STOP also for one that never ran
PinStep StepFor(KSSTATE to, KSSTATE from, KSSTATE streamState, DEVICE_POWER_STATE power);

}  // namespace lidcam
