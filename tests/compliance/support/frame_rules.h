#pragma once

#include <cstdint>
#include <vector>

#include "platform/host/client/stream.h"

namespace lidcam::compliance {

/// Rules for the headers of every frame of a run that began with a stop, for any device. The frames
/// must be passed in their order.
class FrameRules {
 public:
  /// @param interval  100 ns, from the format
  FrameRules(std::uint32_t imageBytes, LONGLONG interval, bool hasClock)
      : imageBytes_(imageBytes), interval_(interval), hasClock_(hasClock) {}

  void Take(const client::Frame& frame);

  [[nodiscard]] int Count() const { return count_; }
  [[nodiscard]] LONGLONG LastTime() const { return lastTime_; }
  [[nodiscard]] LONGLONG LastNumber() const { return lastNumber_; }
  [[nodiscard]] LONGLONG LastDropCount() const { return lastDropCount_; }

 private:
  void TakeTime(const client::Frame& frame);
  void TakeNumbers(const client::Frame& frame);

  const std::uint32_t imageBytes_;
  const LONGLONG interval_;
  const bool hasClock_;
  int count_ = 0;
  LONGLONG lastTime_ = -1;
  LONGLONG lastNumber_ = 0;
  LONGLONG lastDropCount_ = 0;
};

/// The picture is plausible: it has many luminances, and different lines.
void ExpectSanePicture(std::span<const std::byte> yuy2, std::int32_t width);

/// Takes and checks `count` frames.
/// @return STATUS_SUCCESS, or why no more frames come
NTSTATUS TakeFrames(client::Stream& stream, int count, FrameRules& rules);
NTSTATUS TakeFrames(client::Stream& stream, int count);

/// Takes and checks the remaining frames of a stream that no longer runs.
void TakeFramesUntilQuiet(client::Stream& stream, FrameRules& rules);

/// Takes and drops frames until none comes for `quiet` (100 ns) or no more can come.
/// @return STATUS_TIMEOUT, or why no more frames come
NTSTATUS DrainFrames(client::Stream& stream, LONGLONG quiet);

}  // namespace lidcam::compliance
