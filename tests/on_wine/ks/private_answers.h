#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// A device control request that is one of private_requests.h.
bool IsPrivateRequest(PIRP irp);

/// Answers it and completes it. Under the lock of the files; passive level.
NTSTATUS AnswerPrivateRequest(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::wine
