#pragma once

#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

/// Takes a pin to a state, one step at a time, each of which its driver is told. Under the filter's
/// control mutex, and without the device's.
///
/// A step up that the driver refuses is the end of the way; a pin refused at its first step is told to
/// stop at once, for the driver to let go of what it has claimed. The way down is gone in any case.
///
/// Frames go back at a stop, after the last process call has returned.
///
/// @return the first refusal
NTSTATUS SetPinState(PinBlock& pin, KSSTATE target);

/// Brings the pin to a stop and hands all its frames back, also those that were sent to a stopped pin.
void StopPin(PinBlock& pin);

}  // namespace lidcam::host
