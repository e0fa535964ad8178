#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// The client's buffer of a property request.
struct PropertyBuffer {
  void* Data;              ///< the value block; aligned to 8 bytes, null only if Length is 0
  ULONG Length;            ///< the request's OutputBufferLength
  ULONG_PTR* Information;  ///< the request's information field; touched where that is told below
};

// Both take requests of a camera whose hardware has started, and no lock. A block shorter than its
// property needs gives STATUS_BUFFER_TOO_SMALL with the bytes needed as information, and nothing of
// it is read or written: mostly the platform has refused it before.

/// Answers a set by the control behind the property.
///
/// Values go on as they came, out of their range too.
/// @return STATUS_NOT_SUPPORTED for an unknown property and for whatever the control refuses
/// @par The control may sleep in register writes
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer);

/// Answers a get.
///
/// The actual frame rate and the list of frame rates tell with STATUS_BUFFER_OVERFLOW and an
/// information of the bytes needed how long a buffer must be, if Length is 0. The list's information
/// is its length. A read of PrivatePropertyRegister needs kRegisterReadBytes.
///
/// @param request  for the list of frame rates a whole KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S
/// @return STATUS_NOT_SUPPORTED for an unknown property and for a failed register read
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS GetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer);

}  // namespace lidcam
