#include <cstdint>

#include "driver/avstream/pin/capture_pin.h"
#include "driver/avstream/pin/capture_pin_locks.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/base/reference_counted_memory.h"
#include "driver/frame/delivery/frame_delivery.h"

namespace lidcam {
namespace {

// Calls after a start that deliver nothing.
constexpr LONGLONG kSkippedCalls = 2;

constexpr ULONG kWholeHeader = sizeof(KSSTREAM_HEADER) + sizeof(KS_FRAME_INFO);

/// The device's published raw frame, kept for a scope.
class RawFrameHold {
 public:
  explicit RawFrameHold(CaptureDevice& device) : frame_(device.HoldRawFrame(size_, memory_)) {}
  RawFrameHold(const RawFrameHold&) = delete;
  RawFrameHold& operator=(const RawFrameHold&) = delete;
  ~RawFrameHold() {
    if (memory_ != nullptr) LetGo(*memory_);
  }

  /// Null if there is none.
  [[nodiscard]] std::uint8_t* Frame() const { return size_ != 0 ? frame_ : nullptr; }
  [[nodiscard]] std::uint32_t Size() const { return size_; }

 private:
  std::uint32_t size_ = 0;
  ReferenceCountedMemory* memory_ = nullptr;
  std::uint8_t* const frame_;
};

/// Counts the pin busy for a scope: the frame thread doesn't overwrite the raw frame meanwhile.
class BusyHold {
 public:
  explicit BusyHold(volatile LONG& count) : count_(count) { InterlockedIncrement(&count_); }
  BusyHold(const BusyHold&) = delete;
  BusyHold& operator=(const BusyHold&) = delete;
  ~BusyHold() { InterlockedDecrement(&count_); }

 private:
  volatile LONG& count_;
};

// Intervals come from applications; a sum beyond 64 bits wraps.
Time100ns Sum(Time100ns a, Time100ns b) {
  return static_cast<Time100ns>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

Time100ns TimeOf(IKsReferenceClock& clock) {
  LONGLONG systemTime = 0;
  return clock.GetCorrelatedTime(&systemTime);
}

// Null if an application's header has no room for it.
KS_FRAME_INFO* FrameInfoOf(KSSTREAM_HEADER& header) {
  if (header.Size < kWholeHeader) return nullptr;
  void* const behind = &header + 1;
  return static_cast<KS_FRAME_INFO*>(behind);
}

}  // namespace

bool CapturePin::SkipsFrame() {
  const NumbersLock lock(*this);
  if (*FrameCounter >= kSkippedCalls) return false;
  ++*FrameCounter;
  return true;
}

void CapturePin::NoteClockTime(Time100ns now, Time100ns interval) {
  const NumbersLock lock(*this);
  ExpectedFrameTime = Sum(ExpectedFrameTime == 0 ? now : ExpectedFrameTime, interval);
  if (StreamState == KSSTATE_RUN) LastClockTime = now;
}

// Raw frame and camera record are held only while they are read.
NTSTATUS CapturePin::DeliverRawFrame(PKSSTREAM_POINTER& frame) {
  const BusyHold busy(ProcessingCount);
  const CameraHold camera(*Device);
  const RawFrameHold raw(*Device);
  PublishedFrameSize = raw.Size();
  // The device may have been restarted, with another record, since the pin was created.
  Camera = camera.Camera();
  if (raw.Frame() == nullptr || Camera == nullptr) {
    TraceCamera(Camera, "pin frame none");
    return STATUS_UNSUCCESSFUL;
  }
  frame = KsPinGetLeadingEdgeStreamPointer(Pin, KSSTREAM_POINTER_STATE_LOCKED);
  if (frame == nullptr) {
    TraceCamera(Camera, "pin frame no buffer");
    return STATUS_UNSUCCESSFUL;
  }
  KSSTREAM_HEADER& header = *frame->StreamHeader;
  {
    const NumbersLock lock(*this);
    const KS_FRAME_INFO* const info = FrameInfoOf(header);
    FrameInfo.ExtendedHeaderSize = info != nullptr ? info->ExtendedHeaderSize : 0;
    FrameInfo.dwFrameFlags = 0;
  }
  std::uint32_t bytes = 0;
  const DeliveryBuffer buffer{static_cast<std::uint8_t*>(header.Data), header.FrameExtent};
  const Status result = DeliverFrameWithin(*Camera, buffer, raw.Frame(), bytes);
  return result == -1 ? STATUS_CANCELLED : STATUS_PENDING;
}

// Completes the header; returns the frame's counts.
KS_FRAME_INFO CapturePin::CompleteHeader(KSSTREAM_HEADER& header, IKsReferenceClock* clock) {
  const PKS_VIDEOINFOHEADER video = VideoInfo;
  const Time100ns interval = video->AvgTimePerFrame;
  header.DataUsed = video->bmiHeader.biSizeImage;
  header.PresentationTime.Time = 0;
  header.PresentationTime.Numerator = 1;
  header.PresentationTime.Denominator = 1;
  header.Duration = interval;
  header.OptionsFlags = KSSTREAM_HEADER_OPTIONSF_SPLICEPOINT;
  // After the copy: the stamp says when the picture was ready.
  const Time100ns now = clock != nullptr ? TimeOf(*clock) : 0;
  const NumbersLock lock(*this);
  if (clock != nullptr) {
    const FrameStamp stamp = StampFrame(*FrameCounter, now, LastPresentationTime, interval);
    header.PresentationTime.Time = stamp.Time;
    header.OptionsFlags |=
        KSSTREAM_HEADER_OPTIONSF_TIMEVALID | KSSTREAM_HEADER_OPTIONSF_DURATIONVALID;
    LastPresentationTime = stamp.LastTime;
    FrameInfo.DropCount = stamp.DropCount;
    FrameInfo.PictureNumber = stamp.PictureNumber;
  }
  ++*FrameCounter;
  KS_FRAME_INFO* const info = FrameInfoOf(header);
  if (info != nullptr) *info = FrameInfo;
  return FrameInfo;
}

NTSTATUS CapturePin::Process(PKSPIN) {
  if (SkipsFrame()) {
    TraceCamera(Camera, "pin frame skipped");
    return STATUS_UNSUCCESSFUL;
  }
  const ClockHold clock(*this);
  if (clock.Clock() != nullptr) {
    const PKS_VIDEOINFOHEADER video = VideoInfo;
    NoteClockTime(TimeOf(*clock.Clock()), video->AvgTimePerFrame);
  }
  PKSSTREAM_POINTER frame = nullptr;
  const NTSTATUS status = DeliverRawFrame(frame);
  if (status != STATUS_PENDING) return status;
  const KS_FRAME_INFO info = CompleteHeader(*frame->StreamHeader, clock.Clock());
  TraceCamera(Camera, "pin frame picture=%lld drop=%lld bytes=%u",
              static_cast<long long>(info.PictureNumber), static_cast<long long>(info.DropCount),
              static_cast<unsigned>(PublishedFrameSize));
  KsStreamPointerUnlock(frame, TRUE);
  return status;
}

}  // namespace lidcam
