#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// IRP_MJ_PNP of a device of the class.
NTSTATUS NTAPI DispatchPlugAndPlay(PDEVICE_OBJECT functionalDevice, PIRP irp);

/// IRP_MJ_POWER of a device of the class. Passive level: it waits for the device below.
NTSTATUS NTAPI DispatchPower(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::host
