#pragma once

#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

/// Takes a pin to a state, one step at a time, and calls the driver at each step. Under the
/// filter's control mutex, and without the device's.
///
/// A refusal on the way up ends it; after a refusal of the first step the driver is called with the
/// stop at once, to release what it has claimed. The way down continues despite refusals.
///
/// Frames are completed at a stop, after the last process call has returned.
///
/// @return the first refusal
NTSTATUS SetPinState(PinBlock& pin, KSSTATE target);

/// Stops the pin and completes all its frames, also those that were sent to a stopped pin.
void StopPin(PinBlock& pin);

}  // namespace lidcam::host
