#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "tests/on_wine/client/camera_file.h"

namespace lidcam::wine {

/// One frame as it came back, or a buffer without one.
struct ReadFrame {
  DWORD Error = 0;  ///< of a buffer without a frame: ERROR_OPERATION_ABORTED, or worse
  FrameAnswer Head{};
  std::vector<std::byte> Picture;
};

/// A connection to the camera's pin, with its own clock. Whatever fails throws Failure.
class CameraStream {
 public:
  /// @param camera  outlives this
  /// @param format  as CameraFile::Intersect() gives it
  CameraStream(const CameraFile& camera, std::span<const std::byte> format);
  CameraStream(const CameraStream&) = delete;
  CameraStream& operator=(const CameraStream&) = delete;
  /// As far as it goes: the camera may be gone.
  ~CameraStream();

  void SetState(KSSTATE state) const;
  [[nodiscard]] KSSTATE State() const;

  /// Hands the driver one more buffer.
  void Queue();
  /// Waits for the buffer that was handed over first.
  ReadFrame Next();
  /// Buffers that are with the driver.
  [[nodiscard]] std::size_t Queued() const { return queued_.size(); }

  void Close();

 private:
  const CameraFile& camera_;
  std::size_t frameBytes_;
  std::deque<std::unique_ptr<PendingRequest>> queued_;
  bool isOpen_ = false;
};

}  // namespace lidcam::wine
