#pragma once

#include "bus/usb_bus.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/usbd/device/usb_request_server.h"

namespace lidcam::host {

/// A USB device as drivers see it: a physical device object that takes URBs
/// (IOCTL_INTERNAL_USB_SUBMIT_URB), which a UsbRequestServer carries out over a UsbBus. The
/// server's threads belong to the world of the thread that makes the stack.
class UsbDeviceStack {
 public:
  /// @param bus  outlives the stack
  /// @throws std::runtime_error if the kernel gives no device object or no thread
  explicit UsbDeviceStack(bus::UsbBus& bus, const UsbStackOptions& options = {});
  UsbDeviceStack(const UsbDeviceStack&) = delete;
  UsbDeviceStack& operator=(const UsbDeviceStack&) = delete;

  /// Completes all pending requests with USBD_STATUS_DEVICE_GONE and ends the threads. Drivers
  /// above must have detached. Passive level.
  ~UsbDeviceStack() noexcept(false);

  [[nodiscard]] PDEVICE_OBJECT PhysicalDeviceObject() const { return physicalDevice_; }

  /// Unplugs the device: all pending and later requests are completed with USBD_STATUS_DEVICE_GONE.
  void Unplug() { server_.Unplug(); }

 private:
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI AnswerPlugAndPlay(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI AnswerPower(PDEVICE_OBJECT device, PIRP irp);
  static void NTAPI Cancel(PDEVICE_OBJECT device, PIRP irp);

  DRIVER_OBJECT driver_{};
  PDEVICE_OBJECT physicalDevice_ = nullptr;
  UsbRequestServer server_;
};

}  // namespace lidcam::host
