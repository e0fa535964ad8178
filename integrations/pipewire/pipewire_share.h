#pragma once

#include <functional>
#include <string>

#include "integrations/camera/camera_description.h"

namespace lidcam::integrations::pipewire {

/// Offers a camera to PipeWire's applications until isEnding() is true, which is called ten times a second.
///
/// @throws ShareError if the camera can't be opened, or PipeWire can't be reached or ends
void ShareWithPipeWire(const CameraAddress& address,
                       const std::function<void(const std::string& line)>& tell,
                       const std::function<bool()>& isEnding);

/// The module's function that does so.
inline constexpr const char* kShareWithPipeWire = "lidcam_share_with_pipewire";
using ShareWithPipeWireFunction = decltype(ShareWithPipeWire);

}  // namespace lidcam::integrations::pipewire
