#pragma once

#include <string>

#include "apps/lidcam/stream_run.h"
#include "bus/capture/capture_source.h"

namespace lidcam::app {

/// The native size of a capture's frames, judged by the distance of its frame starts. Throws
/// CommandError if there are too few of them or they are of no known size.
[[nodiscard]] PictureSize EstimateSize(const bus::CaptureSource& source);

/// Replays a capture through bring-up, assembly and delivery, without timing. A capture that began
/// after the bring-up is replayed through assembly and delivery alone.
[[nodiscard]] StreamResult RunReplay(const bus::CaptureSource& source, PictureSize size,
                                     const StreamLimits& limits, FrameWriter* writer,
                                     const Verbosity& verbosity);

}  // namespace lidcam::app
