#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Lets programs find the device by the categories of its filters. The platform's class does that
/// under the name of the filter's factory; this kernel can enable an interface without one only, so
/// that a file of the interface is the device's first filter. Passive level.
void EnableInterfaces(PDEVICE_OBJECT functionalDevice);
/// Takes back what is enabled, if anything is.
void DisableInterfaces(PDEVICE_OBJECT functionalDevice);

}  // namespace lidcam::wine
