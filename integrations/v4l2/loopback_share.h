#pragma once

#include <functional>
#include <optional>
#include <string>

#include "integrations/camera/camera_description.h"
#include "integrations/v4l2/loopback_device.h"

namespace lidcam::integrations::v4l2 {

struct ShareOptions {
  CameraAddress Address;
  std::string Device;  ///< "/dev/video9"
  PictureSize Size{640, 480};
};

/// Offers a camera to V4L2's applications, through a device of v4l2loopback, until isEnding() is true. It is called
/// at least ten times a second.
///
/// @param tell  gets lines for the user, on any thread
/// @throws ShareUsageError for a size that the camera has not
/// @throws ShareError if the camera can't be opened, or the device isn't there or ends
void ShareWithV4l2(const ShareOptions& options,
                   const std::function<void(const std::string& line)>& tell,
                   const std::function<bool()>& isEnding, DeviceCalls& calls = SystemCalls());

}  // namespace lidcam::integrations::v4l2
