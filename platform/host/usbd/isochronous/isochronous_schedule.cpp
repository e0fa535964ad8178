#include "platform/host/usbd/isochronous/isochronous_schedule.h"

#include <algorithm>
#include <utility>

namespace lidcam::host {
namespace {

/// Frames between the present one and the first that the controller can still schedule.
constexpr LONGLONG kLeadFrames = 2;

/// Frames by which the patient rule delays a stream's begin: a driver relies on the time between
/// the start and the end of its first transfer, which a late machine may otherwise use up.
constexpr LONGLONG kPatientLeadFrames = 300;

/// Largest delay in frames that the patient rule still makes up for: waits usually end a little
/// late, and the stream must keep its rate.
constexpr LONGLONG kCaughtUpFrames = 4;

LONGLONG FrameAt(LONGLONG time) {
  return time / kFrameTime;
}

// If a completion routine throws, the world stops.
void Complete(const std::vector<UsbRequest>& ended) {
  KIRQL before = PASSIVE_LEVEL;
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  for (const UsbRequest& request : ended) CompleteUrb(request.Irp, *request.Urb, request.Status);
  KeLowerIrql(before);
}

}  // namespace

ULONG IsochronousSchedule::FrameNumber(LONGLONG frame) const {
  return device_.Options.FirstFrame + static_cast<ULONG>(frame);
}

USBD_STATUS IsochronousSchedule::PlaceTransfer(UsbPipe& pipe, _URB_ISOCH_TRANSFER& urb,
                                               IsochronousTransfer& transfer) {
  const LONGLONG present = FrameAt(device_.Options.Now());
  LONGLONG start = std::max(pipe.NextFrame, present + kLeadFrames);
  if ((urb.TransferFlags & USBD_START_ISO_TRANSFER_ASAP) == 0) {
    // Frame numbers wrap around: only the distance from the present one counts.
    const LONG ahead = static_cast<LONG>(urb.StartFrame - FrameNumber(present));
    if (ahead > USBD_ISO_START_FRAME_RANGE) return USBD_STATUS_BAD_START_FRAME;
    const bool isLate = ahead <= 0 || present + ahead < pipe.NextFrame;
    if (isLate && device_.Options.Frames == FrameRule::Strict) return USBD_STATUS_BAD_START_FRAME;
    if (!isLate) start = present + ahead;
  }
  if (device_.Options.Frames == FrameRule::Patient && !HasTransfers(pipe.Handle)) {
    start = std::max(start, present + kPatientLeadFrames);
  }
  const LONGLONG length = urb.NumberOfPackets * kMicroframeTime;
  transfer.EndTime = start * kFrameTime + length;
  pipe.NextFrame = start + (length + kFrameTime - 1) / kFrameTime;
  urb.StartFrame = FrameNumber(start);
  return USBD_STATUS_SUCCESS;
}

USBD_STATUS IsochronousSchedule::SubmitTransfer(PIRP irp, URB& urb, PDRIVER_CANCEL cancel) {
  _URB_ISOCH_TRANSFER& request = urb.UrbIsochronousTransfer;
  const USBD_STATUS checked = CheckIsochronousUrb(request);
  if (checked != USBD_STATUS_SUCCESS) return checked;
  UsbPipe* const pipe = device_.Configuration.FindPipe(request.PipeHandle);
  if (pipe == nullptr || pipe->Type != UsbdPipeTypeIsochronous) {
    return USBD_STATUS_INVALID_PIPE_HANDLE;
  }
  if ((pipe->Endpoint & USB_ENDPOINT_DIRECTION_MASK) == 0) return USBD_STATUS_INVALID_PARAMETER;

  IsochronousTransfer transfer;
  transfer.Irp = irp;
  transfer.Urb = &urb;
  transfer.Pipe = pipe->Handle;
  transfer.Endpoint = pipe->Endpoint;
  transfer.BytesPerMicroframe = pipe->BytesPerMicroframe;
  const USBD_STATUS placed = PlaceTransfer(*pipe, request, transfer);
  if (placed != USBD_STATUS_SUCCESS) return placed;
  if (!AcceptRequest(transfer, cancel)) return USBD_STATUS_CANCELED;
  if (transfers_.empty()) mostTransfers_ = 0;
  transfers_.push_back(transfer);
  mostTransfers_ = std::max(mostTransfers_, transfers_.size());
  return USBD_STATUS_PENDING;
}

void IsochronousSchedule::AcceptNotice(const Notice& notice) {
  notices_.push_back(notice);
  // Without a cancel routine a request is always accepted.
  static_cast<void>(AcceptRequest(notices_.back(), nullptr));
}

USBD_STATUS IsochronousSchedule::SubmitAbort(PIRP irp, URB& urb) {
  const USBD_PIPE_HANDLE handle = urb.UrbPipeRequest.PipeHandle;
  if (device_.Configuration.FindPipe(handle) == nullptr) return USBD_STATUS_INVALID_PIPE_HANDLE;
  AbortPipe(handle);
  AcceptNotice({{.Irp = irp, .Urb = &urb}, handle});
  return USBD_STATUS_PENDING;
}

USBD_STATUS IsochronousSchedule::SubmitFrameNumber(PIRP irp, URB& urb) {
  AcceptNotice({{.Irp = irp, .Urb = &urb}, nullptr});
  return USBD_STATUS_PENDING;
}

bool IsochronousSchedule::AbortPipe(USBD_PIPE_HANDLE handle) {
  if (UsbPipe* const pipe = device_.Configuration.FindPipe(handle)) pipe->NextFrame = 0;
  bool hadAny = false;
  for (IsochronousTransfer& transfer : transfers_) {
    if (transfer.Pipe != handle) continue;
    transfer.IsAborted = true;
    hadAny = true;
  }
  return hadAny;
}

bool IsochronousSchedule::HasTransfers(USBD_PIPE_HANDLE pipe) const {
  return std::any_of(transfers_.begin(), transfers_.end(),
                     [pipe](const auto& transfer) { return transfer.Pipe == pipe; });
}

bool IsochronousSchedule::MarkCancelled(PIRP irp) {
  const auto found = std::find_if(transfers_.begin(), transfers_.end(),
                                  [irp](const auto& transfer) { return transfer.Irp == irp; });
  if (found == transfers_.end()) return false;
  found->IsCancelled = true;
  return true;
}

void IsochronousSchedule::Run() {
  while (RunOnce() == Step::Again) {
  }
}

IsochronousSchedule::Work IsochronousSchedule::Look(LONGLONG now) {
  TakeEnded(now);
  IsochronousTransfer* const next = FindNext();
  looksAgain_ = next != nullptr ? TimeToRead(*next) : std::numeric_limits<LONGLONG>::max();
  return {next, device_.IsStopping && transfers_.empty() && notices_.empty()};
}

IsochronousSchedule::Step IsochronousSchedule::RunOnce() {
  const LONGLONG now = device_.Options.Now();
  Work work;
  UnderSpinLock(device_.Lock, [&] { work = Look(now); });
  if (device_.Options.CompletionDelay != 0) ReadTogether(work, now);
  if (!ended_.empty()) {
    Complete(ended_);
    ended_.clear();
  } else if (work.IsOver) {
    return Step::Over;
  } else if (work.Next == nullptr) {
    WaitForWork();
  } else if (!IsDue(work, now)) {
    WaitUntil(looksAgain_);
  } else {
    Read(*work.Next, now, nullptr);
  }
  return Step::Again;
}

// A device that falls silent holds back the transfer that waits for it, and none of those before.
void IsochronousSchedule::ReadTogether(Work& work, LONGLONG now) {
  const auto hasCome = [this](const IsochronousTransfer& transfer) {
    return device_.Bus.HasReceived(transfer.Endpoint,
                                   transfer.Urb->UrbIsochronousTransfer.NumberOfPackets);
  };
  for (bool isFirst = true; IsDue(work, now) && (isFirst || hasCome(*work.Next)); isFirst = false) {
    Read(*work.Next, now, &work);
  }
}

void IsochronousSchedule::PutOffBehind(const IsochronousTransfer& late, LONGLONG lost) {
  const LONGLONG frames = lost / kFrameTime;
  if (frames <= kCaughtUpFrames) return;
  const SpinLockGuard guard(device_.Lock);
  for (IsochronousTransfer& transfer : transfers_) {
    if (transfer.Pipe != late.Pipe || transfer.EndTime <= late.EndTime) continue;
    transfer.EndTime += frames * kFrameTime;
  }
  if (UsbPipe* const pipe = device_.Configuration.FindPipe(late.Pipe)) pipe->NextFrame += frames;
}

bool IsochronousSchedule::HasEnded(IsochronousTransfer& transfer) const {
  if (transfer.Status == USBD_STATUS_PENDING) {
    if (device_.IsGone) {
      transfer.Status = USBD_STATUS_DEVICE_GONE;
    } else if (transfer.IsAborted || transfer.IsCancelled) {
      transfer.Status = USBD_STATUS_CANCELED;
    } else {
      return false;
    }
    MarkNotAccessed(transfer.Urb->UrbIsochronousTransfer);
  }
  return TakeFromCanceller(transfer);
}

void IsochronousSchedule::TakeEnded(LONGLONG now) {
  for (auto transfer = transfers_.begin(); transfer != transfers_.end();) {
    if (HasEnded(*transfer)) {
      ended_.push_back(*transfer);
      transfer = transfers_.erase(transfer);
    } else {
      ++transfer;
    }
  }
  // An abort completes after the transfers that it aborted.
  std::erase_if(notices_, [&](Notice& notice) {
    if (notice.AbortedPipe == nullptr) {
      notice.Urb->UrbGetCurrentFrameNumber.FrameNumber = FrameNumber(FrameAt(now));
    } else if (std::any_of(transfers_.begin(), transfers_.end(), [&](const auto& transfer) {
                 return transfer.Pipe == notice.AbortedPipe && transfer.IsAborted;
               })) {
      return false;
    }
    notice.Status = device_.IsGone ? USBD_STATUS_DEVICE_GONE : USBD_STATUS_SUCCESS;
    ended_.push_back(notice);
    return true;
  });
}

IsochronousTransfer* IsochronousSchedule::FindNext() {
  IsochronousTransfer* next = nullptr;
  for (IsochronousTransfer& transfer : transfers_) {
    if (transfer.IsSilent || transfer.Status != USBD_STATUS_PENDING) continue;
    if (next == nullptr || transfer.EndTime < next->EndTime) next = &transfer;
  }
  return next;
}

LONGLONG IsochronousSchedule::TimeToRead(const IsochronousTransfer& next) const {
  const auto isOnPipe = [&next](const auto& transfer) { return transfer.Pipe == next.Pipe; };
  const LONGLONG latest = next.EndTime + device_.Options.CompletionDelay;
  auto left = std::ranges::count_if(transfers_, isOnPipe);
  LONGLONG time = next.EndTime;
  std::size_t together = 0;
  for (const auto& transfer : transfers_) {
    if (!isOnPipe(transfer)) continue;
    if (--left == 0 || 2 * ++together > mostTransfers_ || transfer.EndTime > latest) break;
    time = std::max(time, transfer.EndTime);
  }
  return time;
}

void IsochronousSchedule::Read(IsochronousTransfer& transfer, LONGLONG now, Work* work) {
  if (device_.Options.Frames == FrameRule::Patient) PutOffBehind(transfer, now - transfer.EndTime);
  const USBD_STATUS status =
      ReadTransfer(device_.Bus, transfer, transfer.Urb->UrbIsochronousTransfer, packets_);
  bool isGone = false;
  UnderSpinLock(device_.Lock, [&] {
    transfer.Status = status;
    transfer.IsSilent = status == USBD_STATUS_PENDING;
    isGone = status == USBD_STATUS_DEVICE_GONE && !device_.IsGone;
    if (isGone) device_.IsGone = true;
    if (status == USBD_STATUS_STALL_PID) {
      if (UsbPipe* const pipe = device_.Configuration.FindPipe(transfer.Pipe)) {
        pipe->HasStalled = true;
      }
    }
    if (work != nullptr) *work = Look(now);
  });
  if (isGone) device_.Wake();
}

void IsochronousSchedule::WaitForWork() {
  KeWaitForSingleObject(&device_.ScheduleWork, Executive, KernelMode, FALSE, nullptr);
}

void IsochronousSchedule::WaitUntil(LONGLONG time) {
  LARGE_INTEGER limit{};
  limit.QuadPart = device_.Options.Now() - time;
  if (limit.QuadPart >= 0) return;
  KeWaitForSingleObject(&device_.ScheduleWork, Executive, KernelMode, FALSE, &limit);
}

}  // namespace lidcam::host
