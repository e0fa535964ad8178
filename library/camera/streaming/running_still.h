#pragma once

#include <cstdint>
#include <functional>

#include "library/camera/streaming/camera_stream.h"
#include "library/settings/host_environment.h"
#include "library/still/still_file.h"

namespace lidcam::app {

/// Takes a still of a running stream: its next frame. The stream goes on meanwhile, for ten seconds at most.
///
/// @param sets   which tree the driver writes it to
/// @param value  marked in it, the low 16 bits
/// @param ahead  called ahead of each step of the stream; may be empty
/// Throws CommandError.
[[nodiscard]] StillPicture TakeStillOf(CameraStream& stream, SetFiles sets, std::uint32_t value,
                                       const std::function<void()>& ahead = {});

}  // namespace lidcam::app
