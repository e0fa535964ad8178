#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "library/camera/source/camera_source.h"

namespace lidcam::app {

/// What a command does if another process has the camera open.
struct LockPatience {
  bool Waits = false;    ///< until it is free; else it is refused
  bool IsQuiet = false;  ///< waits without a message
  std::string HowToWait = ": --wait waits until it is free";  ///< the end of the refusal
  std::optional<std::chrono::milliseconds> Limit{};  ///< of the wait; none: until it is free
};

/// The command line of this process, as others are told of it: "lidcam stream --fast".
[[nodiscard]] std::string OwnCommand();

/// The process that has a camera open: "1234 (lidcam stream)"; empty if none has.
///
/// @param unit  as UnitOf() names it
[[nodiscard]] std::string LockHolderOf(const std::string& unit);

/// The exclusive lock under which a process opens a camera and changes it, as one driver owns the
/// hardware. It ends with the process, even a killed one. Recordings need none.
class CameraLock {
 public:
  /// If the lock's holder is a short command, such as set, the constructor waits and does not fail.
  ///
  /// Throws CommandError that names the process with the camera, or if it is interrupted while it
  /// waits.
  CameraLock(const CameraChoice& choice, const LockPatience& patience);
  CameraLock(const CameraLock&) = delete;
  CameraLock& operator=(const CameraLock&) = delete;
  ~CameraLock();

 private:
  int file_ = -1;
};

}  // namespace lidcam::app
