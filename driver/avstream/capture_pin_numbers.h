#pragma once

#include "driver/avstream/capture_pin.h"

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

/// Keeps the pin's clock for a scope, if it has one: a stop may give the pin's own reference up
/// meanwhile.
class CapturePin::ClockHold {
 public:
  explicit ClockHold(CapturePin& pin) {
    const NumbersLock lock(pin);
    if (pin.HasClock == 0) return;
    clock_ = pin.Clock;
    clock_->AddRef();
  }
  ClockHold(const ClockHold&) = delete;
  ClockHold& operator=(const ClockHold&) = delete;
  ~ClockHold() {
    if (clock_ != nullptr) clock_->Release();
  }

  /// Null without a clock.
  [[nodiscard]] IKsReferenceClock* Clock() const { return clock_; }

 private:
  IKsReferenceClock* clock_ = nullptr;
};

}  // namespace lidcam
