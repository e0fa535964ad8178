#include "bus/usb/frame_clock.h"

#include <algorithm>

namespace lidcam::bus {
namespace {

constexpr std::chrono::microseconds kMicroframe{125};

// A second: long enough that one of its transfers is reaped without delay.
constexpr std::uint32_t kCorrectionPeriod = 8000;

}  // namespace

std::int64_t FrameClock::Elapsed(Time time) const {
  return (time - origin_) / kMicroframe;
}

std::uint64_t FrameClock::Now(Time now) const {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(Elapsed(now), 0));
}

void FrameClock::Restart(Time now) {
  next_ = std::max(next_, Now(now));
  reaped_ = 0;
}

std::uint64_t FrameClock::Reap(std::uint32_t packets, Time time) {
  std::int64_t lag = Elapsed(time) - static_cast<std::int64_t>(next_ + packets);
  if (lag > std::int64_t{queued_}) {
    next_ += static_cast<std::uint64_t>(lag);
    lag = 0;
  }
  const std::uint64_t first = next_;
  next_ += packets;
  smallestLag_ = reaped_ == 0 ? lag : std::min(smallestLag_, lag);
  reaped_ += packets;
  if (reaped_ >= kCorrectionPeriod) Correct();
  return first;
}

// The packets define the bus's time: the correction moves the origin of the steady clock.
void FrameClock::Correct() {
  origin_ += smallestLag_ * kMicroframe;
  reaped_ = 0;
}

}  // namespace lidcam::bus
