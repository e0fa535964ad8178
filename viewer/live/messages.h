#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "viewer/camera/camera_state.h"
#include "viewer/camera/camera_telemetry.h"

namespace lidcam::viewer {

/// The text of a message; bytes that are no UTF-8, as in the name of a file, are replaced.
[[nodiscard]] std::string TextOf(const nlohmann::json& message);

/// A camera as pages read it.
[[nodiscard]] nlohmann::json ToJson(std::size_t camera, const CameraState& state);

/// Its controls.
[[nodiscard]] nlohmann::json ToJson(const std::vector<ControlState>& controls);

/// What stands ahead of a picture's JPEG: the length of the text in four bytes, the lowest first, and the text.
///
/// @param sent  ms of CLOCK_MONOTONIC
[[nodiscard]] std::string PictureHeader(std::size_t camera, const Picture& picture, double sent);

// What pages see of a camera's inside.

[[nodiscard]] nlohmann::json ToJson(std::size_t camera, const LoopStep& step);
/// @param time  seconds of CLOCK_MONOTONIC
[[nodiscard]] nlohmann::json ToJson(std::size_t camera, const BusCounts& counts, double time);
/// @param sensor  whose registers have names of their own
[[nodiscard]] nlohmann::json ToJson(std::size_t camera, const std::vector<RegisterValue>& values,
                                    std::string_view sensor);

/// ms of CLOCK_MONOTONIC.
[[nodiscard]] double MonotonicMilliseconds();

}  // namespace lidcam::viewer
