#pragma once

#include <string>

#include "integrations/camera/camera_description.h"

namespace lidcam::integrations {

/// Held while a camera is shared, so that no chooser has it twice. It ends with the process, even a killed one.
///
/// It is a file `UNIT.share` in `$XDG_RUNTIME_DIR/lidcam`, which names the process and the way. Without that
/// folder, as in a login without a session, nothing is held.
class ShareLock {
 public:
  /// @param way  "through PipeWire", for the error of another process
  /// @throws ShareError that names the process which shares the camera already
  ShareLock(const CameraDescription& camera, const std::string& way);
  ShareLock(const ShareLock&) = delete;
  ShareLock& operator=(const ShareLock&) = delete;
  ~ShareLock();

 private:
  int file_ = -1;
};

}  // namespace lidcam::integrations
