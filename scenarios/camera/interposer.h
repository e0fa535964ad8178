#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/usbd/declarations/usb_declarations.h"
#include "testbed/device_filter.h"

namespace lidcam::scenarios {

/// A transfer completed on another processor than the USB stack's.
struct CompletionElsewhere {
  bool Fails = false;             ///< with an error of the URB
  std::function<void()> Ahead{};  ///< at DISPATCH_LEVEL on that processor, before the completion
  std::function<void()> Behind{};
};

/// A device between the camera's driver and the USB stack that injects faults which no bus can
/// cause: requests refused before they are sent, kept forever, or completed concurrently with all
/// others.
class Interposer final : public testbed::DeviceFilter {
 public:
  Interposer();
  Interposer(const Interposer&) = delete;
  Interposer& operator=(const Interposer&) = delete;

  void Attach(PDEVICE_OBJECT below) override;
  void Detach() override;

  /// The next `count` isochronous transfers are refused in the driver's own call.
  ///
  /// @param urbStatus  success for a driver in between that refuses without changing the URB
  void RefuseTransfers(std::uint32_t count, USBD_STATUS urbStatus = USBD_STATUS_BAD_START_FRAME) {
    refusedTransfers_ = count;
    urbStatus_ = urbStatus;
  }

  /// The next isochronous transfer is completed on another processor; one at a time.
  void CompleteElsewhere(CompletionElsewhere completion) { elsewhere_ = std::move(completion); }

  /// The next `count` control requests are accepted and never completed, even if they are
  /// cancelled.
  void KeepRequests(std::uint32_t count) { keptRequests_ = count; }
  [[nodiscard]] bool HasKeptRequest() const { return hasKept_; }

  /// Calls `look` with each URB that the driver sends, ahead of everything that happens to it, on the sender's
  /// thread.
  void Watch(std::function<void(PIRP irp, const URB& urb)> look) { look_ = std::move(look); }

 private:
  static NTSTATUS NTAPI PassOn(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI Enter(PDEVICE_OBJECT device, PIRP irp);
  static NTSTATUS NTAPI Done(PDEVICE_OBJECT device, PIRP irp, PVOID context);
  static void NTAPI CompleteDone(PKDPC dpc, PVOID context, PVOID irp, PVOID unused);
  NTSTATUS Dispatch(PIRP irp);
  NTSTATUS SendToComplete(PIRP irp);

  DRIVER_OBJECT driver_{};
  PDEVICE_OBJECT device_ = nullptr;
  PDEVICE_OBJECT below_ = nullptr;
  std::function<void(PIRP irp, const URB& urb)> look_;
  std::uint32_t refusedTransfers_ = 0;
  USBD_STATUS urbStatus_ = USBD_STATUS_SUCCESS;
  std::uint32_t keptRequests_ = 0;
  bool hasKept_ = false;
  std::optional<CompletionElsewhere> elsewhere_;
  bool isOut_ = false;  ///< a transfer to be completed on another processor
  KDPC completer_{};
  KEVENT completed_{};
};

}  // namespace lidcam::scenarios
