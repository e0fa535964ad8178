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

/// The same for the file that an application's handle stands for. Passive level.
/// @return also what the handle itself failed with
NTSTATUS ReferenceClockOfHandle(HANDLE handle, KPROCESSOR_MODE mode, const FILE_OBJECT& sibling,
                                IKsReferenceClock** clock);

}  // namespace lidcam::host
