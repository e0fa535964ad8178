#pragma once

#include <functional>

#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/stream/stream_run.h"

namespace lidcam::app {

/// Opens the camera and streams from it.
/// @param camera   which; its port may be another one than before
/// @param limits   the rest of the stream's
/// @param isFirst  false: the camera is plugged in again, and the stream continues
using StreamPart = std::function<StreamResult(const CameraChoice& camera,
                                              const StreamLimits& limits, bool isFirst)>;

/// Streams from a camera until a limit, over its unplugging: with --wait for as long as it takes until the same
/// camera is plugged in again; without, where it is still or soon there, as after a reset or when the
/// machine has slept. Other cameras stream once.
///
/// @param start  the options' camera settled
/// @return all parts together; with a trouble if the camera was not plugged in again
[[nodiscard]] StreamResult StreamOverReplugs(const CommonOptions& start, const StreamLimits& limits,
                                             const StreamPart& stream);

/// The combined result of a stream and its continuation.
[[nodiscard]] StreamCounts Together(const StreamCounts& before, const StreamCounts& behind);

}  // namespace lidcam::app
