#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// Makes buffers of the camera's frames. A buffer borrows the frame's memory, read-only, until the last element
/// has released it.
///
/// The camera has kCameraBuffers buffers. If the elements behind hold so many that the camera would soon have
/// none to fill, as a queue or a recorder does, the picture is copied instead.
///
/// Used by one thread; buffers may be released by any, also after this object is destroyed.
class FrameBuffers {
 public:
  static constexpr std::uint32_t kCameraBuffers = 10;
  static constexpr int kMostLent = 6;

  FrameBuffers() : lent_(std::make_shared<std::atomic<int>>(0)) {}

  /// Forgets the frames of a stream that has ended, whose buffers the next stream doesn't lack.
  void StartAnew() { lent_ = std::make_shared<std::atomic<int>>(0); }

  /// @param frame  taken over
  /// @return a buffer without times, or null without memory
  [[nodiscard]] GstBuffer* Wrap(const lidcam_frame* frame);

  /// Frames that had to be copied since this object was made.
  [[nodiscard]] std::uint64_t CopyCount() const { return copyCount_.load(); }

 private:
  std::shared_ptr<std::atomic<int>> lent_;
  std::atomic<std::uint64_t> copyCount_ = 0;
};

}  // namespace lidcam::gstreamer
