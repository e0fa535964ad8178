#pragma once

#include <cstdarg>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "driver/usb/records/usb_records.h"
#include "driver/usb/transfers/frame_thread.h"
#include "driver/usb/transfers/iso_transfers.h"
#include "driver/usb/transfers/stream_recovery.h"
#include "tests/driver/support/register_space.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::test {

/// The lower device's treatment of a transfer that is sent to it.
struct LowerAnswer {
  bool Pends = true;                            ///< keeps it; otherwise completes it at once
  NTSTATUS Status = STATUS_SUCCESS;             ///< of the IRP, if at once
  USBD_STATUS UrbStatus = USBD_STATUS_SUCCESS;  ///< of the URB, if at once
};

/// A transfer as the lower device received it.
struct SentTransfer {
  std::uint32_t StartFrame;
  std::uint32_t Flags;
  std::uint32_t Bytes;
  void* Pipe;

  bool operator==(const SentTransfer&) const = default;
};

/// One stream's records over a lower device controlled by the test, in the simulation that the test
/// runs in. There is no device object: the test is the stream control.
///
/// The pipes are two: entry 0 with 16 bytes a packet, entry 1 with 1024, handles 0x100 and 0x101.
class Circle {
  struct Records {
    UsbStreamRecord Stream{};
    IsoPipeline Pipeline{};
    IsoTransfer Transfers[8]{};
  };
  Records records_;  // what the references below refer to

 public:
  explicit Circle(std::uint32_t transfers = 7, std::uint32_t packets = 32);
  Circle(const Circle&) = delete;
  Circle& operator=(const Circle&) = delete;
  ~Circle();

  /// Makes all transfers.
  void Prepare();

  /// Prepares, starts thread and watchdog, and sends the transfers, as an acquire and a run do.
  void Run();

  /// Does what a pause does.
  NTSTATUS Pause();

  /// Does what a release does; nothing on a stream that is not open.
  void Release();

  /// Completes a transfer that the lower device keeps, at dispatch level.
  void CompleteTransfer(std::size_t sent, USBD_STATUS status = USBD_STATUS_SUCCESS,
                        NTSTATUS irpStatus = STATUS_SUCCESS);

  /// Completes all transfers that the lower device keeps, oldest first.
  void CompleteAllTransfers(USBD_STATUS status = USBD_STATUS_SUCCESS);

  /// Lets the watchdog's routine run now, as the timer's deferred call.
  void Tick();

  [[nodiscard]] IsoTransfer& Transfer(std::size_t index) { return Pipeline->Transfers[index]; }
  [[nodiscard]] USBD_PIPE_INFORMATION& Pipe(std::size_t index) {
    return Device.InterfaceInformation->Pipes[index];
  }
  [[nodiscard]] std::string Flags() const;  ///< "running halted wait=N"

  /// Trace and requests so far, a line each; register accesses are left out.
  [[nodiscard]] std::string Text() const;
  void Forget() {
    Lines.clear();
    Times.clear();
  }

  UsbDeviceRecord Device{};
  UsbStreamRecord& Stream;
  IsoPipeline* Pipeline;
  KSDEVICE KsDevice{};
  volatile LONG WorkItems = 0;
  RegisterSpace Registers;

  std::vector<SentTransfer> Sent;
  std::vector<PIRP> Kept;  ///< transfers in flight at the lower device
  std::deque<LowerAnswer> Answers;
  bool AbortBringsHome = true;
  NTSTATUS AbortStatus = STATUS_SUCCESS;
  NTSTATUS ResetStatus = STATUS_SUCCESS;
  std::optional<ULONG> CurrentFrame = 1000;
  std::function<void(USHORT function)> OnRequest;        ///< runs ahead of each request's answer
  std::function<void(const std::string& line)> OnTrace;  ///< runs on the thread that traces
  std::vector<std::string> Lines;
  std::vector<LONGLONG> Times;  ///< of the trace's lines

 private:
  NTSTATUS Dispatch(PIRP irp);
  NTSTATUS AnswerTransfer(PIRP irp, _URB_ISOCH_TRANSFER& urb);
  NTSTATUS AnswerRequest(PIRP irp, URB& urb);
  [[gnu::format(printf, 2, 0)]] static void Note(const CameraContext*, const char* format,
                                                 std::va_list arguments);

  std::vector<std::uint64_t> interface_;
  std::vector<std::uint8_t> rawBuffers_;
  host::TestDriver lower_;
  KMUTEX mutex_;

  friend KMUTEX& MutexOf(PKSDEVICE device);
};

/// Completes at dispatch level, as the USB stack does.
void CompleteAtDispatch(PIRP irp, NTSTATUS status);

}  // namespace lidcam::test
