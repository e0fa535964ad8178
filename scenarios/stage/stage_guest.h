#pragma once

#include "driver/usb/stream/usb_capture_device.h"

namespace lidcam::scenarios {

/// The host into which a scenario plugs the stage's camera, and its clients: exists until the world
/// has ended or stopped.
class StageGuest {
 public:
  StageGuest() = default;
  StageGuest(const StageGuest&) = delete;
  StageGuest& operator=(const StageGuest&) = delete;
  virtual ~StageGuest() = default;

  /// The USB side of the guest's camera; null if it has none.
  [[nodiscard]] virtual const UsbCaptureDevice* Usb() const = 0;

  /// The scenario has ended.
  virtual void End() {}
};

}  // namespace lidcam::scenarios
