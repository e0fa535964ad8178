#pragma once

#include "driver/avstream/device/rundown.h"
#include "driver/avstream/pin/capture_pin.h"

namespace lidcam {

/// Locks the pin's counts and times for a scope: they are wider than a machine word, and a state
/// change resets them while a frame may be under way.
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

/// Protects the pin's clock for a scope, if it has one: a stop waits for that before it releases
/// the pin's reference. The clock's own reference count is not used: its documentation does not say
/// at which level it may be changed.
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
