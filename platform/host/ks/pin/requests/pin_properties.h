#pragma once

#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

/// What the class itself answers of a pin: state, format, framing and priority of its connection, and
/// its master clock.
extern const KSAUTOMATION_TABLE kPinAutomation;

/// Lets the pin go by another clock than before. Under the filter's control mutex, the pin at a stop.
///
/// @param clock   its reference is the pin's from here on; null for none
/// @param handle  what an application is told when it asks for the clock
void UseMasterClock(PinBlock& pin, IKsReferenceClock* clock, HANDLE handle);

}  // namespace lidcam::host
