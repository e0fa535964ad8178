#pragma once

#include <memory>

#include "bus/usb_bus.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/usbd/configuration/usb_device_state.h"
#include "platform/host/usbd/control/control_requests.h"
#include "platform/host/usbd/isochronous/isochronous_schedule.h"

namespace lidcam::host {

/// Carries out the URBs of one USB device over a UsbBus, whoever owns the device object that they are
/// sent to.
///
/// What can be refused at once is completed in the driver's call; all else is pending and is
/// completed later, at DISPATCH_LEVEL, by two system threads of the server's own: one for control
/// requests, one for what has its time in frames. All bus calls but Abort() and Unplug() are theirs.
class UsbRequestServer {
 public:
  /// @param bus     outlives the server
  /// @param cancel  the owner's cancel routine: passes the packet on to Cancel()
  UsbRequestServer(bus::UsbBus& bus, const UsbStackOptions& options, PDRIVER_CANCEL cancel);
  UsbRequestServer(const UsbRequestServer&) = delete;
  UsbRequestServer& operator=(const UsbRequestServer&) = delete;

  /// Makes the threads. Nothing may be submitted before.
  /// @throws std::runtime_error if the kernel gives no thread; there is none then
  void Start();

  /// Completes all that is out with USBD_STATUS_DEVICE_GONE and ends the threads. Drivers have
  /// detached by then. Passive level; also after a Start() that failed, and more than once.
  void Stop();

  /// Takes a request packet of the device's internal device control.
  /// @return its status, STATUS_PENDING if it is completed later
  NTSTATUS Dispatch(PIRP irp);

  /// What a cancel routine does with its packet: lets go of the cancel lock, and ends the request.
  void Cancel(PIRP irp);

  /// Pulls the plug: all that is out ends with USBD_STATUS_DEVICE_GONE, and so does what comes later.
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
