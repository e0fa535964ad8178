#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

// Requests of applications' files, which are filters, pins and clocks: FsContext of the file object
// points to the object's head.
//
// Files can be opened until the device is gone, and requests work until it is removed
// (STATUS_DELETE_PENDING); closing always works. Passive level.

NTSTATUS NTAPI DispatchCreate(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI DispatchCleanup(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI DispatchClose(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI DispatchDeviceControl(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::host
