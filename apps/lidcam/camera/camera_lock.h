#pragma once

#include "apps/lidcam/camera/camera_source.h"

namespace lidcam::app {

/// How a command meets a camera that another process has.
struct LockPatience {
  bool Waits = false;    ///< until it is free; else it is refused
  bool IsQuiet = false;  ///< waits without a word
};

/// The right to open a camera and change it, which one process has at a time, as one driver has the
/// hardware. It ends with the process, however that ends. Recordings need none.
class CameraLock {
 public:
  /// Whoever only waits for another command that is done at once, such as set, is not refused.
  ///
  /// Throws CommandError that tells which process has the camera, or if it is interrupted while it waits.
  CameraLock(const CameraChoice& choice, const LockPatience& patience);
  CameraLock(const CameraLock&) = delete;
  CameraLock& operator=(const CameraLock&) = delete;
  ~CameraLock();

 private:
  int file_ = -1;
};

}  // namespace lidcam::app
