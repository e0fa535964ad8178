#pragma once

#include <cstdint>

#include "bus/capture/replay/capture_source.h"
#include "library/base/units.h"
#include "library/camera/source/camera_source.h"
#include "library/settings/stream_size.h"

namespace lidcam::app {

/// The raw size of a capture's frames, judged by the distance of its frame starts. Throws
/// CommandError if there are too few of them or they are of no known size.
[[nodiscard]] PictureSize EstimateRawSize(const bus::CaptureSource& source);

/// Bytes of a capture's raw frames, judged in the same way. Throws CommandError if there are too few frames.
[[nodiscard]] std::uint64_t EstimateRawBytes(const bus::CaptureSource& source);

/// Adapts a stream's size to the camera: a recorded camera sends its recorded raw size
/// for any delivered size. Other cameras' sizes stay unchanged. Throws CommandError if the
/// capture has an unknown size, or another than the requested raw size.
[[nodiscard]] StreamSize FitToCamera(const StreamSize& size, const CameraChoice& camera);

}  // namespace lidcam::app
