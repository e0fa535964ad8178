#pragma once

#include "bus/usb_bus.h"
#include "platform/host/nt/device_object.h"
#include "platform/host/usbd/control_requests.h"
#include "platform/host/usbd/isochronous_schedule.h"
#include "platform/host/usbd/usb_device_state.h"

namespace lidcam::host {

struct UsbStackOptions {
  /// Bus frame number at interrupt time 0.
  ULONG FirstFrame = 0;
};

/// A USB device as drivers see it: a physical device object that takes URBs
/// (IOCTL_INTERNAL_USB_SUBMIT_URB) and carries them out over a UsbBus.
///
/// What can be refused at once is completed in the driver's call; all else is pending and is
/// completed later, at DISPATCH_LEVEL, by two system threads of the stack's own: one for control
/// requests, one for what has its time in frames. They belong to the world of the thread that makes
/// the stack, and all bus calls but Abort() and Unplug() are theirs.
class UsbDeviceStack {
 public:
  /// @param bus  outlives the stack
  /// @throws std::runtime_error if the kernel gives no device object or no thread
  explicit UsbDeviceStack(bus::UsbBus& bus, const UsbStackOptions& options = {});
  UsbDeviceStack(const UsbDeviceStack&) = delete;
  UsbDeviceStack& operator=(const UsbDeviceStack&) = delete;

  /// Completes all that is out with USBD_STATUS_DEVICE_GONE and ends the threads. Drivers above have
  /// detached by then. Passive level.
  ~UsbDeviceStack() noexcept(false);

  [[nodiscard]] PDEVICE_OBJECT PhysicalDeviceObject() const { return physicalDevice_; }

  /// Pulls the plug: all that is out ends with USBD_STATUS_DEVICE_GONE, and so does what comes later.
  void Unplug();

 private:
  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI AnswerPlugAndPlay(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI AnswerPower(PDEVICE_OBJECT device, PIRP irp);
  static void NTAPI Cancel(PDEVICE_OBJECT device, PIRP irp);

  NTSTATUS Submit(PIRP irp, URB& urb);
  USBD_STATUS Route(PIRP irp, URB& urb);
  USBD_STATUS RefuseBulkTransfer(const _URB_BULK_OR_INTERRUPT_TRANSFER& urb);
  void MarkGone();
  void Stop();

  DRIVER_OBJECT driver_{};
  PDEVICE_OBJECT physicalDevice_ = nullptr;
  UsbDeviceState state_;
  IsochronousSchedule schedule_;
  ControlRequests requests_;
  ControlQueue queue_;
  std::unique_ptr<ServiceThread> controlThread_;
  std::unique_ptr<ServiceThread> scheduleThread_;
};

}  // namespace lidcam::host
