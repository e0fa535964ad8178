#pragma once

#include "driver/avstream/device/rundown.h"
#include "driver/avstream/pin/capture_pin.h"

namespace lidcam {

/// Holds the pin's counts and times still for a scope: they are wider than a machine's word, and a
/// state change resets them beside a frame under way.
class CapturePin::NumbersLock {
 public:
  explicit NumbersLock(CapturePin& pin) : lock_(pin.numbersLock_) {
    KeAcquireSpinLock(&lock_, &before_);
  }
  NumbersLock(const NumbersLock&) = delete;
  NumbersLock& operator=(const NumbersLock&) = delete;
  ~NumbersLock() { KeReleaseSpinLock(&lock_, before_); }

 private:
  KSPIN_LOCK& lock_;
  KIRQL before_{};
};

/// Keeps the pin's clock for a scope, if it has one: a stop waits for that before it gives the pin's
/// reference up. The clock's own reference count is left alone: nothing says at which level it may be
/// counted.
class CapturePin::ClockHold {
 public:
  explicit ClockHold(CapturePin& pin) : hold_(pin.clockUse_) {
    if (hold_.IsInside() && pin.HasClock != 0) clock_ = pin.Clock;
  }
  ClockHold(const ClockHold&) = delete;
  ClockHold& operator=(const ClockHold&) = delete;
  ~ClockHold() = default;

  /// Null without a clock.
  [[nodiscard]] IKsReferenceClock* Clock() const { return clock_; }

 private:
  const RundownHold hold_;
  IKsReferenceClock* clock_ = nullptr;
};

}  // namespace lidcam
