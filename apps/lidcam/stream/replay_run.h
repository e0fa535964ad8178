#pragma once

#include <string>

#include "apps/lidcam/stream/stream_run.h"
#include "bus/capture/replay/capture_source.h"
#include "library/camera/source/camera_source.h"
#include "library/camera/source/recorded_size.h"

namespace lidcam::app {

/// The sizes of a replay.
struct ReplaySize {
  PictureSize Delivered;
  PictureSize Raw;  ///< of the capture's frames
};

/// Replays a capture through bring-up, assembly and delivery, without timing. A capture that began
/// after the bring-up is replayed through assembly and delivery alone.
[[nodiscard]] StreamResult RunReplay(const bus::CaptureSource& source, const ReplaySize& size,
                                     const StreamLimits& limits, FrameWriter* writer,
                                     const Verbosity& verbosity);

}  // namespace lidcam::app
