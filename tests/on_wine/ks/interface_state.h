#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

// IoSetDeviceInterfaceState() for an interface with a reference string. The kernel registers it,
// but looks for its key under the wrong name, and would create its link in a directory that doesn't
// exist.

/// An interface that programs can find.
struct EnabledInterface {
  EnabledInterface* Next;
  PDEVICE_OBJECT Device;
  UNICODE_STRING Link;  ///< as IoRegisterDeviceInterface() gives it; the kernel's memory
  HANDLE Directory;  ///< directory of Link, named like the interface without its reference string
};

/// Creates the link to the device below, and marks the interface as enabled. DisableInterface()
/// must follow, even after a failure. Passive level.
///
/// @param one  with its Link, which has a reference string in it
NTSTATUS EnableInterface(EnabledInterface& one, PDEVICE_OBJECT physicalDevice);
/// Reverses both. Passive level.
void DisableInterface(EnabledInterface& one);

}  // namespace lidcam::wine
