#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Registers the device's interfaces for the categories of its filters, with the reference strings
/// of their factories, as the platform's class does. This kernel opens the device without that
/// string, so that a file of any interface is the device's first filter. Passive level.
void EnableInterfaces(PDEVICE_OBJECT functionalDevice);
/// Disables the enabled interfaces, if any.
void DisableInterfaces(PDEVICE_OBJECT functionalDevice);

}  // namespace lidcam::wine
