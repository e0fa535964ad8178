#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

// IoSetDeviceInterfaceState() for an interface with a reference string. The kernel registers such a one,
// but looks for its key below the wrong name, and would put its link into a directory that isn't there.

/// An interface that programs see.
struct EnabledInterface {
  EnabledInterface* Next;
  PDEVICE_OBJECT Device;
  UNICODE_STRING Link;  ///< as IoRegisterDeviceInterface() gives it; the kernel's memory
  HANDLE Directory;  ///< what Link stands in, named as the interface without its reference string
};

/// Makes the link, to the device below, and marks the interface as one that is there. DisableInterface()
/// follows, even a failure. Passive level.
///
/// @param one  with its Link, which has a reference string in it
NTSTATUS EnableInterface(EnabledInterface& one, PDEVICE_OBJECT physicalDevice);
/// Takes both back. Passive level.
void DisableInterface(EnabledInterface& one);

}  // namespace lidcam::wine
