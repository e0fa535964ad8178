#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "tests/on_wine/client/camera/camera_file.h"

namespace lidcam::wine {

/// A completed frame, or a buffer without one.
struct ReadFrame {
  DWORD Error = 0;  ///< of a buffer without a frame: ERROR_OPERATION_ABORTED, or worse
  FrameAnswer Head{};
  std::vector<std::byte> Picture;
};

/// A connection to the camera's pin, with its own clock. Throws Failure.
class CameraStream {
 public:
  /// @param camera  outlives this
  /// @param format  the result of CameraFile::Intersect()
  CameraStream(const CameraFile& camera, std::span<const std::byte> format);
  CameraStream(const CameraStream&) = delete;
  CameraStream& operator=(const CameraStream&) = delete;
  /// Ignores errors: the camera may be gone.
  ~CameraStream();

  void SetState(KSSTATE state) const;
  [[nodiscard]] KSSTATE State() const;

  /// Sends the driver one more buffer.
  void Queue();
  /// Waits for the oldest queued buffer.
  ReadFrame Next();
  /// Buffers that the driver has.
  [[nodiscard]] std::size_t Queued() const { return queued_.size(); }

  void Close();

 private:
  const CameraFile& camera_;
  std::size_t frameBytes_;
  std::deque<std::unique_ptr<PendingRequest>> queued_;
  bool isOpen_ = false;
};

}  // namespace lidcam::wine
