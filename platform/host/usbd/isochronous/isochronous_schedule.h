#pragma once

#include <deque>
#include <limits>
#include <vector>

#include "platform/host/usbd/configuration/usb_device_state.h"
#include "platform/host/usbd/isochronous/isochronous_transfer.h"

namespace lidcam::host {

/// The scheduled isochronous transfers of a device, and all other operations on frames: the frame
/// number, and aborts.
///
/// Frames of 1 ms are counted by the stack's time; packets are microframes of 125 us. A transfer
/// takes whole frames, is read from the bus after its last microframe and is completed then, at
/// DISPATCH_LEVEL, by Run()'s thread.
class IsochronousSchedule {
 public:
  explicit IsochronousSchedule(UsbDeviceState& device) : device_(device) {}

  // All of these except Run() under the device's lock.

  /// @return USBD_STATUS_PENDING, or why the URB is refused; the caller completes it then
  USBD_STATUS SubmitTransfer(PIRP irp, URB& urb, PDRIVER_CANCEL cancel);

  /// Aborts all transfers of a pipe; the URB is completed after them.
  USBD_STATUS SubmitAbort(PIRP irp, URB& urb);

  USBD_STATUS SubmitFrameNumber(PIRP irp, URB& urb);

  /// @return whether the pipe had transfers to abort
  bool AbortPipe(USBD_PIPE_HANDLE pipe);

  [[nodiscard]] bool HasTransfers(USBD_PIPE_HANDLE pipe) const;
  bool MarkCancelled(PIRP irp);

  /// @return whether Run()'s thread looks for work before the end of the last accepted transfer, although nothing
  ///         wakes it
  [[nodiscard]] bool SeesLastInTime() const {
    return !transfers_.empty() && transfers_.back().EndTime >= looksAgain_;
  }

  /// Body of the schedule's thread; returns when the stack stops.
  void Run();

 private:
  enum class Step { Again, Over };
  struct Notice : UsbRequest {
    USBD_PIPE_HANDLE AbortedPipe = nullptr;
  };

  USBD_STATUS PlaceTransfer(UsbPipe& pipe, _URB_ISOCH_TRANSFER& urb, IsochronousTransfer& transfer);
  [[nodiscard]] ULONG FrameNumber(LONGLONG frame) const;
  void AcceptNotice(const Notice& notice);
  /// What there is to do, as of one look under the lock.
  struct Work {
    IsochronousTransfer* Next = nullptr;  ///< the transfer that ends first; null without one
    bool IsOver = false;                  ///< the stack stops, and nothing is left
  };

  Step RunOnce();
  /// Also adds the requests that have ended to ended_. Under the lock.
  [[nodiscard]] Work Look(LONGLONG now);
  [[nodiscard]] static bool IsDue(const Work& work, LONGLONG now) {
    return work.Next != nullptr && work.Next->EndTime <= now;
  }
  /// Whether a transfer can be completed now; of one that the bus has not read, why.
  [[nodiscard]] bool HasEnded(IsochronousTransfer& transfer) const;
  /// Adds the requests that have ended to ended_.
  void TakeEnded(LONGLONG now);
  [[nodiscard]] IsochronousTransfer* FindNext();
  /// When the transfer that ends first is to be read: at its end, or with others behind it. Several of a few
  /// transfers would leave the bus without one too soon.
  [[nodiscard]] LONGLONG TimeToRead(const IsochronousTransfer& next) const;
  /// Delays the transfers behind a late one by the same time.
  void PutOffBehind(const IsochronousTransfer& late, LONGLONG lost);
  /// Reads the transfers that are due and completed together, one after the other.
  void ReadTogether(Work& work, LONGLONG now);
  /// Reads a transfer that is due.
  ///
  /// @param work  is looked for anew, under the lock that the transfer's end takes; may be null
  void Read(IsochronousTransfer& transfer, LONGLONG now, Work* work);
  void WaitUntil(LONGLONG time);
  void WaitForWork();

  UsbDeviceState& device_;
  /// In the order of submission. Only Run()'s thread removes any: one that it reads stays where it is.
  std::deque<IsochronousTransfer> transfers_;
  std::size_t mostTransfers_ = 0;  ///< since there were none
  std::vector<Notice> notices_;
  std::vector<UsbRequest> ended_;  ///< of Run()'s thread: to be completed
  std::vector<bus::IsochronousPacket>
      packets_;  ///< of Run()'s thread: of the transfer that is read
  LONGLONG looksAgain_ = std::numeric_limits<LONGLONG>::max();  ///< interrupt time, at the latest
};

}  // namespace lidcam::host
