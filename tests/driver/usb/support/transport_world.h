#pragma once

#include <functional>
#include <memory>
#include <string>

#include "driver/usb/records/usb_records.h"
#include "driver/usb/stream/camera_usb_device.h"
#include "platform/host/ks/device/streaming_device.h"
#include "tests/driver/usb/support/platform_log.h"
#include "tests/driver/usb/support/scripted_stack.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {

/// A camera on a scripted USB stack, in a simulation: device object, KSDEVICE and the driver's device
/// on it.
class TransportWorld {
 public:
  TransportWorld();
  TransportWorld(const TransportWorld&) = delete;
  TransportWorld& operator=(const TransportWorld&) = delete;
  ~TransportWorld() noexcept(false);

  NTSTATUS Start();
  NTSTATUS Acquire(LONG width = 640, LONG height = 480);

  [[nodiscard]] CameraUsbDevice& Device() const {
    return static_cast<CameraUsbDevice&>(*CaptureDeviceOf(Ks()));
  }
  [[nodiscard]] PKSDEVICE Ks() const { return ks_.get(); }
  [[nodiscard]] UsbDeviceRecord& Record() const { return *Device().UsbDevice; }
  [[nodiscard]] UsbStreamRecord& Stream() const { return *Device().UsbStream; }

  /// Compares the platform calls made while `action` runs with a golden file.
  void ExpectGolden(const std::string& name, const std::function<void()>& action);

  PlatformLog Log;
  ScriptedStack Stack;
  KSPIN Pin{};

 private:
  DRIVER_OBJECT driver_;
  std::unique_ptr<host::StreamingDevice> ks_;
};

/// Runs a test of the transport in a simulation, which must end without leaks.
void InWorld(const std::function<void(TransportWorld&)>& test);

[[nodiscard]] KS_VIDEOINFOHEADER VideoInfo(LONG width, LONG height);

}  // namespace lidcam::test
