#pragma once

#include <cstdint>
#include <vector>

#include "platform/host/client/stream.h"

namespace lidcam::compliance {

/// What holds for the headers of every frame of a run from stop on, whatever is behind the driver.
/// The frames come in their order; each one is expected to keep the rules.
class FrameRules {
 public:
  /// @param interval  100 ns, as the format has it
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

/// The picture is of something: of many brightnesses, and of more than one line.
void ExpectSanePicture(std::span<const std::byte> yuy2, std::int32_t width);

/// Takes frames until `count` of them have come, by the rules.
/// @return what ended it: STATUS_SUCCESS, or why there are no more
NTSTATUS TakeFrames(client::Stream& stream, int count, FrameRules& rules);
NTSTATUS TakeFrames(client::Stream& stream, int count);

/// Takes what a stream that no longer runs still has, by the rules.
void TakeFramesUntilQuiet(client::Stream& stream, FrameRules& rules);

/// Takes and drops whatever comes until `quiet` (100 ns) goes by without a frame or no more can come.
/// @return STATUS_TIMEOUT, or why there are no more
NTSTATUS DrainFrames(client::Stream& stream, LONGLONG quiet);

}  // namespace lidcam::compliance
