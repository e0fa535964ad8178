#pragma once

#include <string>

#include "apps/lidcam/stream/stream_run.h"
#include "bus/capture/replay/capture_source.h"
#include "library/camera/camera_source.h"

namespace lidcam::app {

/// The sizes of a replay.
struct ReplaySize {
  PictureSize Delivered;
  PictureSize Raw;  ///< of the capture's frames
};

/// The raw size of a capture's frames, judged by the distance of its frame starts. Throws
/// CommandError if there are too few of them or they are of no known size.
[[nodiscard]] PictureSize EstimateRawSize(const bus::CaptureSource& source);

/// Adapts a stream's size to the camera: a recorded camera sends its recorded raw size
/// for any delivered size. Other cameras' sizes stay unchanged. Throws CommandError if the
/// capture has an unknown size, or another than the requested raw size.
[[nodiscard]] StreamSize FitToCamera(const StreamSize& size, const CameraChoice& camera);

/// Replays a capture through bring-up, assembly and delivery, without timing. A capture that began
/// after the bring-up is replayed through assembly and delivery alone.
[[nodiscard]] StreamResult RunReplay(const bus::CaptureSource& source, const ReplaySize& size,
                                     const StreamLimits& limits, FrameWriter* writer,
                                     const Verbosity& verbosity);

}  // namespace lidcam::app
