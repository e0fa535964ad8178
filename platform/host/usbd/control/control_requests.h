#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "platform/host/usbd/configuration/usb_device_state.h"
#include "platform/host/usbd/isochronous/isochronous_schedule.h"
#include "platform/host/usbd/requests/usb_request.h"

namespace lidcam::host {

/// Carries out the requests that concern endpoint 0 and the configuration, one at a time. Each
/// function blocks as long as the bus does; call without the lock at passive level.
class ControlRequests {
 public:
  ControlRequests(UsbDeviceState& device, IsochronousSchedule& schedule)
      : device_(device), schedule_(schedule) {}

  /// @return the URB's status; USBD_STATUS_PENDING if the device stays silent
  USBD_STATUS Execute(URB& urb);

 private:
  USBD_STATUS GetDescriptor(_URB_CONTROL_DESCRIPTOR_REQUEST& urb);
  USBD_STATUS SendVendorRequest(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST& urb);
  USBD_STATUS SelectConfiguration(_URB_SELECT_CONFIGURATION& urb);
  USBD_STATUS Unconfigure();
  USBD_STATUS OpenInterfaces(const std::vector<UsbInterfaceSetting>& settings,
                             _URB_SELECT_CONFIGURATION& urb);
  USBD_STATUS SelectInterface(_URB_SELECT_INTERFACE& urb);
  USBD_STATUS ResetPipe(_URB_PIPE_REQUEST& urb);
  USBD_STATUS SendSimple(std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
                         std::uint16_t index);
  void AbortPipes(int interface);

  UsbDeviceState& device_;
  IsochronousSchedule& schedule_;
};

/// The queue of those requests: strictly in the order of submission, completed at DISPATCH_LEVEL by
/// Run()'s thread. A request that the device never answers blocks all behind it until it is
/// cancelled.
class ControlQueue {
 public:
  ControlQueue(UsbDeviceState& device, ControlRequests& requests)
      : device_(device), requests_(requests) {}

  // All of these except Run() under the device's lock.

  /// @return USBD_STATUS_PENDING, or why the URB is refused; the caller completes it then
  USBD_STATUS Submit(PIRP irp, URB& urb, PDRIVER_CANCEL cancel);

  bool MarkCancelled(PIRP irp);

  /// Body of the queue's thread; returns when the stack stops.
  void Run();

 private:
  [[nodiscard]] bool RunOnce();
  std::vector<UsbRequest> TakeEnded();
  void Execute(UsbRequest& request);

  UsbDeviceState& device_;
  ControlRequests& requests_;
  std::deque<std::unique_ptr<UsbRequest>> queue_;
};

}  // namespace lidcam::host
