#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Lines of exposure last composed for sensor registers 0xFF04 and 0xFF03. Shared by all cameras.
extern constinit Shared<std::uint32_t> AppliedExposureLines;

/// Low byte of `AeOutput.Exposure` when the sensor was last given a row. Shared by all cameras; for
/// readers of a memory dump.
extern constinit Shared<std::uint8_t> LastWrittenExposure;

/// The light mode that bounds the exposure index: the light state machine's result when the
/// exposure loop last ran. Shared by all cameras.
extern constinit Shared<std::uint32_t> AeLightMode;

/// Controls exposure and light by the statistics in the header of a raw frame. To be called once
/// for every frame delivered, before the frame is copied.
///
/// The exposure loop runs on SensorTypeVGA0708 with `AutoExposure` exactly 1 and `Flicker` other
/// than 0; elsewhere the sensor exposes by itself. The light state machine gets every frame, and a
/// standing exposure is committed to SensorTypeVGA0708 now and then whether the loop runs or not.
/// Failed register accesses are not reported: the sensor keeps the old values until the next step.
///
/// Each step writes one trace line, ahead of its register accesses:
/// "exposure index=54 exposure=7 coarse=3 fine=142 lines=1218".
///
/// @param rawFrame  at least 24 bytes: the exposure level of the sensor's own automatic exposure at
///                  16, the average luminance at 23
/// @par Called on the frame path at whatever level the frame's consumer runs on, raised ones
/// included. Steps, light transitions and commits block there for control transfers, and a commit
/// waits for the bus; nothing tests the level or defers them, so the transport must take its
/// requests at that level
void RunFrameExposureControl(CameraContext& context, const std::uint8_t* rawFrame);

}  // namespace lidcam
