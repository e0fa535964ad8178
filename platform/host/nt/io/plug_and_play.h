#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/pnp_declarations.h"

// What the plug and play manager and the power manager tell a device's drivers. `device` is any of its
// stack: the topmost driver is asked. Each gives the drivers' status. Passive level.

namespace lidcam::host {

NTSTATUS StartDevice(PDEVICE_OBJECT device);
NTSTATUS QueryStopDevice(PDEVICE_OBJECT device);
NTSTATUS StopDevice(PDEVICE_OBJECT device);
NTSTATUS QueryRemoveDevice(PDEVICE_OBJECT device);
NTSTATUS SurpriseRemoveDevice(PDEVICE_OBJECT device);

/// The drivers above the bus's own have gone from the stack when it returns.
NTSTATUS RemoveDevice(PDEVICE_OBJECT device);

/// @param capabilities  what the drivers set is added to it
NTSTATUS QueryCapabilities(PDEVICE_OBJECT device, DEVICE_CAPABILITIES& capabilities);

NTSTATUS SetDevicePower(PDEVICE_OBJECT device, DEVICE_POWER_STATE state);

}  // namespace lidcam::host
