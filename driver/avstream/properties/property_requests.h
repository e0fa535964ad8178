#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// The client's buffer of a property request.
struct PropertyBuffer {
  void* Data;              ///< the value block; aligned to 8 bytes, null only if Length is 0
  ULONG Length;            ///< the request's OutputBufferLength
  ULONG_PTR* Information;  ///< the request's information field; set where stated below
};

// Both require started hardware and take no lock. For a block shorter than its property needs they
// return STATUS_BUFFER_TOO_SMALL with the bytes needed as information, and neither read nor write
// it: usually the platform has refused it already.

/// Handles a set with the property's control.
///
/// Values are passed on unchanged, even out of range.
/// @return STATUS_NOT_SUPPORTED for an unknown property and for all that the control refuses
/// @par The control may sleep in register writes
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer);

/// Handles a get.
///
/// If Length is 0, the actual frame rate and the list of frame rates return STATUS_BUFFER_OVERFLOW
/// with the bytes needed as information. The list's information is its length. A read of
/// PrivatePropertyRegister needs kRegisterReadBytes.
///
/// @param request  for the list of frame rates a whole KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S
/// @return STATUS_NOT_SUPPORTED for an unknown property and for a failed register read
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS GetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer);

}  // namespace lidcam
