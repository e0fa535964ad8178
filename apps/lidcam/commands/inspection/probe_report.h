#pragma once

#include <string>
#include <vector>

#include "apps/lidcam/options/common_options.h"
#include "bus/enumeration.h"
#include "bus/usb_bus.h"

namespace lidcam::app {

/// A report on an unknown unit, as text for a person and for a bug report. Each
/// section that fails says so in its place, and the rest goes on.
class ProbeReport {
 public:
  /// @param bus     the camera's, outlives the report
  /// @param choice  which camera that is
  ProbeReport(bus::UsbBus& bus, const CameraChoice& choice) : bus_(bus), choice_(choice) {}

  /// The program, the machine, the port.
  void AddMachine();
  /// Descriptors as bytes, and the alternate settings that they describe.
  void AddDescriptors();
  /// The bring-up's accesses of the sensor's identity, and all registers of both chips after it.
  void AddRegisters();
  /// What comes in a quarter of a second of each alternate setting.
  void AddSettings();
  /// A second of frames at each size.
  void AddStreams();

  [[nodiscard]] const std::string& Text() const { return text_; }
  /// What went wrong, a line each.
  [[nodiscard]] const std::vector<std::string>& Failures() const { return failures_; }

 private:
  void AddTitle(const std::string& title);
  void AddLine(const std::string& line);
  void AddFailure(const std::string& what, const std::string& why);
  void AddSetting(const bus::AlternateSetting& setting);

  bus::UsbBus& bus_;
  const CameraChoice& choice_;
  std::string text_;
  std::vector<std::string> failures_;
  bus::UsbDeviceInfo device_{};
};

}  // namespace lidcam::app
