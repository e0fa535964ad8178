#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// The clock that a file was opened on.
///
/// @param sibling  a file of the same device
/// @param clock    referenced
/// @return STATUS_INVALID_PARAMETER for a file that isn't a clock of that device
NTSTATUS ReferenceClockOfFile(const FILE_OBJECT& file, const FILE_OBJECT& sibling,
                              IKsReferenceClock** clock);

/// The same for the file of an application's handle. Passive level.
/// @return also the failure of the handle itself
NTSTATUS ReferenceClockOfHandle(HANDLE handle, KPROCESSOR_MODE mode, const FILE_OBJECT& sibling,
                                IKsReferenceClock** clock);

}  // namespace lidcam::host
