#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Whether a device control request is one of private_requests.h.
bool IsPrivateRequest(PIRP irp);

/// Carries it out and completes it. Under the lock of the files; passive level.
NTSTATUS AnswerPrivateRequest(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::wine
