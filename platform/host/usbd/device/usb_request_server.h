#pragma once

#include <memory>

#include "bus/usb_bus.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/usbd/configuration/usb_device_state.h"
#include "platform/host/usbd/control/control_requests.h"
#include "platform/host/usbd/isochronous/isochronous_schedule.h"

namespace lidcam::host {

/// Carries out the URBs of one USB device over a UsbBus. The device object that receives them may
/// belong to any driver.
///
/// URBs that can be refused at once are completed in the driver's call; all others are pending and
/// completed later, at DISPATCH_LEVEL, by two system threads of the server: one for control
/// requests, one for requests that are timed in frames. Only these threads call the bus, except for
/// Abort() and Unplug().
class UsbRequestServer {
 public:
  /// @param bus     outlives the server
  /// @param cancel  the owner's cancel routine: passes the packet on to Cancel()
  UsbRequestServer(bus::UsbBus& bus, const UsbStackOptions& options, PDRIVER_CANCEL cancel);
  UsbRequestServer(const UsbRequestServer&) = delete;
  UsbRequestServer& operator=(const UsbRequestServer&) = delete;

  /// Makes the threads. Nothing may be submitted before.
  /// @throws std::runtime_error if the kernel gives no thread; none is left then
  void Start();

  /// Completes all pending requests with USBD_STATUS_DEVICE_GONE and ends the threads. Drivers must
  /// have detached. Passive level; also after a failed Start(), and more than once.
  void Stop();

  /// Takes a request of the device's internal device control.
  /// @return its status, STATUS_PENDING if it is completed later
  NTSTATUS Dispatch(PIRP irp);

  /// Work of a cancel routine: releases the cancel lock, and ends the request.
  void Cancel(PIRP irp);

  /// Unplugs the device: all pending and later requests are completed with USBD_STATUS_DEVICE_GONE.
  void Unplug();

 private:
  NTSTATUS Submit(PIRP irp, URB& urb);
  USBD_STATUS Route(PIRP irp, URB& urb);
  USBD_STATUS RefuseBulkTransfer(const _URB_BULK_OR_INTERRUPT_TRANSFER& urb);

  const PDRIVER_CANCEL cancel_;
  UsbDeviceState state_;
  IsochronousSchedule schedule_;
  ControlRequests requests_;
  ControlQueue queue_;
  std::unique_ptr<ServiceThread> controlThread_;
  std::unique_ptr<ServiceThread> scheduleThread_;
};

}  // namespace lidcam::host
