#pragma once

#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

/// The properties of a pin that the class answers: state, format, framing and priority of its
/// connection, and its master clock.
extern const KSAUTOMATION_TABLE kPinAutomation;

/// Replaces the pin's master clock. Under the filter's control mutex, with the pin stopped.
///
/// @param clock   its reference is the pin's from here on; null for none
/// @param handle  returned to an application that gets the property of the master clock
void UseMasterClock(PinBlock& pin, IKsReferenceClock* clock, HANDLE handle);

}  // namespace lidcam::host
