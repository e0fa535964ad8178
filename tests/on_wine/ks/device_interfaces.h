#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Lets programs find the device by the categories of its filters, under the reference strings of their
/// factories, as the platform's class does. This kernel opens the device without that string, so that a
/// file of any interface is the device's first filter. Passive level.
void EnableInterfaces(PDEVICE_OBJECT functionalDevice);
/// Takes back what is enabled, if anything is.
void DisableInterfaces(PDEVICE_OBJECT functionalDevice);

}  // namespace lidcam::wine
