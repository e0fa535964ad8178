#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/pnp_declarations.h"

// Requests of the plug and play manager and the power manager to a device's drivers. `device` is
// any of its stack: the topmost driver gets the request. Each returns the drivers' status. Passive
// level.

namespace lidcam::host {

NTSTATUS StartDevice(PDEVICE_OBJECT device);
NTSTATUS QueryStopDevice(PDEVICE_OBJECT device);
NTSTATUS StopDevice(PDEVICE_OBJECT device);
NTSTATUS QueryRemoveDevice(PDEVICE_OBJECT device);
NTSTATUS SurpriseRemoveDevice(PDEVICE_OBJECT device);

/// On return the drivers above the bus driver have left the stack.
NTSTATUS RemoveDevice(PDEVICE_OBJECT device);

/// @param capabilities  the drivers add theirs
NTSTATUS QueryCapabilities(PDEVICE_OBJECT device, DEVICE_CAPABILITIES& capabilities);

NTSTATUS SetDevicePower(PDEVICE_OBJECT device, DEVICE_POWER_STATE state);

}  // namespace lidcam::host
