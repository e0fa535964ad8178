#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Creates the record of a camera and brings the camera up: reads the bridge, loads the settings,
/// identifies the sensor, loads its register sets and programs it.
///
/// @param transport         copied
/// @param capabilities      filled before any hardware access
/// @param deviceDescriptor  the 18 bytes as the device sent them
/// @param longConfig        nonzero: wTotalLength of the configuration descriptor was 193
/// @return the record, or null: no memory, or the last register read of the bring-up failed. The
///         hardware keeps what was programmed. Missing settings or register sets don't fail it.
_IRQL_requires_max_(PASSIVE_LEVEL)
[[nodiscard]] CameraContext* CreateCameraContext(const CameraTransport& transport,
                                                 CameraCapabilities& capabilities,
                                                 const std::uint8_t* deviceDescriptor,
                                                 std::uint32_t longConfig);

/// Frees the record once no work is pending. The settings are not saved here.
_IRQL_requires_max_(PASSIVE_LEVEL)
void DestroyCameraContext(CameraContext* context);

/// First step of a stream start, before SelectStreamMode(). Always 0.
Status MarkStreaming(CameraContext& context);

/// Ends a stream: powers the sensor down and turns the LED off. Always 0.
_IRQL_requires_max_(PASSIVE_LEVEL)
Status EndStream(CameraContext& context);

/// Hook that the frame thread and the stop path call. Does nothing; always 0.
Status StreamIdle(CameraContext& context);

/// Notes that the device is powered down. Always 0.
Status SuspendCamera(CameraContext& context);

/// Programs the camera again after a power-down. Always 0.
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ResumeCamera(CameraContext& context);

/// Sleeps. Returns at once if there is no memory for the event that it waits on.
_IRQL_requires_max_(PASSIVE_LEVEL)
void WaitMilliseconds(std::uint32_t count);

}  // namespace lidcam
