#pragma once

#include "tests/on_wine/ks/pin_connection.h"

namespace lidcam::wine {

/// Carries out kReadFrame: the request is pending until its frame is completed. Passive level.
NTSTATUS ReadFrame(PDEVICE_OBJECT device, PinConnection& connection, PIRP irp);

}  // namespace lidcam::wine
