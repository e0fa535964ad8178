#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// What the class itself answers of a pin: state, format, framing and priority of its connection, and
/// its master clock.
extern const KSAUTOMATION_TABLE kPinAutomation;

}  // namespace lidcam::host
