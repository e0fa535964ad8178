#pragma once

#include <cstdint>
#include <vector>

#include "fuzz/support/input.h"
#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/usbd/declarations/usb_declarations.h"
#include "testbed/device_filter.h"

namespace lidcam::fuzz {

/// A device between the camera's driver and the USB stack that completes the driver's requests as
/// an input determines: delayed, reordered, refused, completed within the call, with any status,
/// length and offset, and with aborts that do nothing. It keeps only the rules of the platform:
/// each request is completed once, a pending one is completed when it is cancelled, and nothing is
/// written beyond the driver's buffers.
class HostileStack final : public testbed::DeviceFilter {
 public:
  HostileStack();
  HostileStack(const HostileStack&) = delete;
  HostileStack& operator=(const HostileStack&) = delete;

  void Attach(PDEVICE_OBJECT below) override;
  void Detach() override;

  /// From now on the input decides; before, and after its end, everything is passed on.
  /// @param decisions  used until TurnHarmless()
  void TurnHostile(Input& decisions) { decisions_ = &decisions; }

  /// Passes everything on from now on, and completes the pending requests, including those sent
  /// meanwhile. Passive level.
  void TurnHarmless();

  /// Completes one of the pending requests: `choice` determines which and how. Passive level.
  void CompleteOne(Input& choice);

 private:
  /// A request that is in flight for the driver.
  struct Waiting {
    PIRP Irp;
    bool IsDone = false;  ///< the USB stack has completed it: its results are kept
    bool CanBeCancelled = false;
  };

  static NTSTATUS NTAPI PassOn(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI Enter(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI CameUp(PDEVICE_OBJECT device, PIRP irp, PVOID context);
  static void NTAPI Cancel(PDEVICE_OBJECT device, PIRP irp);

  NTSTATUS Dispatch(PIRP irp);
  NTSTATUS DispatchTransfer(PIRP irp, URB& urb);
  NTSTATUS DispatchBulk(PIRP irp, URB& urb);
  NTSTATUS DispatchAbort(PIRP irp, URB& urb);
  NTSTATUS DispatchRequest(PIRP irp, URB& urb);
  NTSTATUS Forward(PIRP irp);
  NTSTATUS Watch(PIRP irp);
  NTSTATUS Keep(PIRP irp);
  NTSTATUS KeepUntilCancelled(PIRP irp);
  NTSTATUS CompleteNow(PIRP irp, URB& urb, NTSTATUS status, bool saysPending);
  NTSTATUS Finish(PIRP irp);
  void CompleteAll(USBD_STATUS status);
  void Complete(std::size_t index, USBD_STATUS urbStatus, NTSTATUS status);
  void Tamper(URB& urb, PIRP irp);
  void TamperWithPackets(_URB_ISOCH_TRANSFER& urb);
  void TamperWithInterface(USBD_INTERFACE_INFORMATION& information);

  DRIVER_OBJECT driver_{};
  PDEVICE_OBJECT device_ = nullptr;
  PDEVICE_OBJECT below_ = nullptr;
  Input* decisions_ = nullptr;
  std::vector<Waiting> waiting_;
};

}  // namespace lidcam::fuzz
