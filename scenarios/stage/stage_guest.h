#pragma once

#include "driver/usb/stream/usb_capture_device.h"

namespace lidcam::scenarios {

/// The host that a scenario plugs the stage's camera into, and those who use it there: it lives until the
/// world has ended or stopped.
class StageGuest {
 public:
  StageGuest() = default;
  StageGuest(const StageGuest&) = delete;
  StageGuest& operator=(const StageGuest&) = delete;
  virtual ~StageGuest() = default;

  /// The USB side of the guest's camera; null if it has none.
  [[nodiscard]] virtual const UsbCaptureDevice* Usb() const = 0;

  /// The scenario has been played.
  virtual void End() {}
};

}  // namespace lidcam::scenarios
