#include "scenarios/clients/checked_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host/client/client_error.h"
#include "scenarios/run/equal_bytes.h"

namespace lidcam::scenarios {
namespace {

constexpr LONGLONG kFirstNumber = 2;  // two calls are skipped, and counted

// The transfers of a start are not contiguous: data that the camera sends in between are lost.
constexpr std::uint64_t kUnevenFrames = 12;

// A client may request any interval; beyond this one a sum of times overflows or doesn't increase.
constexpr LONGLONG kLongestInterval = LONGLONG{1} << 40;

constexpr ULONG kStamped = KSSTREAM_HEADER_OPTIONSF_SPLICEPOINT |
                           KSSTREAM_HEADER_OPTIONSF_TIMEVALID |
                           KSSTREAM_HEADER_OPTIONSF_DURATIONVALID;

// The pin copies as many bytes of a format's bitmap header as the header says that it has, and the rest of its copy is 0:
// a header that ends before the size of a picture gives pictures of no bytes.
std::uint32_t ImageBytesOf(const client::VideoFormat& format) {
  const KS_VIDEOINFOHEADER& header = format.Header().VideoInfoHeader;
  KS_VIDEOINFOHEADER copy{};
  const std::size_t bytes =
      offsetof(KS_VIDEOINFOHEADER, bmiHeader) + std::size_t{header.bmiHeader.biSize};
  std::memcpy(&copy, &header, std::min(bytes, sizeof(copy)));
  return copy.bmiHeader.biSizeImage;
}

template <typename Action>
NTSTATUS StatusOf(Action action) {
  try {
    action();
  } catch (const client::ClientError& error) {
    return error.Status();
  }
  return STATUS_SUCCESS;
}

std::string PictureLine(const client::Frame& frame) {
  const std::span<const std::byte> bytes = frame.Bytes();
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return "picture " + std::to_string(frame.PictureNumber()) + " drop " +
         std::to_string(frame.DropCount()) + " time " + std::to_string(frame.PresentationTime()) +
         " duration " + std::to_string(frame.Duration()) + " options " +
         std::to_string(frame.OptionsFlags()) + " bytes " + std::to_string(bytes.size()) +
         " hash " + std::to_string(std::hash<std::string_view>{}(text));
}

}  // namespace

CheckedStream::CheckedStream(Stage& stage, bool isSound, const client::Camera& camera,
                             const client::VideoFormat& format, std::size_t buffers)
    : stage_(stage),
      isSound_(isSound),
      format_(format),
      room_(ImageBytesOf(format)),
      pin_(std::make_unique<client::Stream>(camera, format,
                                            client::StreamOptions{.Buffers = buffers})) {}

// After any failure the pin reports its state; one that fails this request too delivers nothing.
void CheckedStream::LookAtState() {
  KSSTATE state = KSSTATE_STOP;
  const NTSTATUS status = StatusOf([&] { state = pin_->State(); });
  isStateKnown_ = NT_SUCCESS(status);
  isStopped_ = isStateKnown_ && state == KSSTATE_STOP;
  isRunning_ = NT_SUCCESS(status) && state == KSSTATE_RUN;
  if (!NT_SUCCESS(status)) ForgetFrames();
  if (!isStopped_) return;
  isFirst_ = true;
  isFresh_ = true;
  nextNumber_.reset();
}

void CheckedStream::NoteState(KSSTATE wanted, NTSTATUS status) {
  LookAtState();
  if (wanted == KSSTATE_RUN) framesSinceRun_ = 0;
  // A stream whose pause failed behaves at its next run like a new one.
  if (!NT_SUCCESS(status) && !isStopped_) ForgetFrames();
}

// The next frame may have any number.
void CheckedStream::ForgetFrames() {
  isFirst_ = true;
  isFresh_ = false;
  nextNumber_.reset();
}

NTSTATUS CheckedStream::SetState(KSSTATE state) {
  const NTSTATUS status = pin_->SetState(state);
  NoteState(state, status);
  return status;
}

NTSTATUS CheckedStream::Run() {
  const NTSTATUS status = StatusOf([this] { pin_->Run(); });
  NoteState(KSSTATE_RUN, status);
  return status;
}

NTSTATUS CheckedStream::Stop() {
  const NTSTATUS status = StatusOf([this] { pin_->Stop(); });
  NoteState(KSSTATE_STOP, status);
  stage_.RequireAlways(pin_->Queued() == 0, "a stopped stream keeps buffers");
  return status;
}

NTSTATUS CheckedStream::SetFormat(const client::VideoFormat& format) {
  const NTSTATUS status = pin_->SetFormat(format);
  if (NT_SUCCESS(status)) {
    stage_.Require(isStopped_ || !isStateKnown_, "a stream that isn't stopped takes a format");
    format_ = format;
  }
  return status;
}

NTSTATUS CheckedStream::UseClock() {
  const NTSTATUS status = StatusOf([this] { pin_->UseClock(); });
  if (!NT_SUCCESS(status)) return status;
  stage_.Require(isStopped_ || !isStateKnown_, "a stream that isn't stopped takes a clock");
  hasClock_ = true;
  return status;
}

void CheckedStream::CancelBuffers() {
  pin_->CancelBuffers();
  nextNumber_.reset();
}

// Nothing that can end the run happens while the driver's buffer is in use.
NTSTATUS CheckedStream::Take(LONGLONG timeout) {
  Frame seen{};
  {
    const client::NextFrame next = pin_->Next(timeout);
    if (next.Status != STATUS_SUCCESS) {
      if (next.Status != STATUS_TIMEOUT) nextNumber_.reset();
      return next.Status;
    }
    const client::Frame& frame = *next.Picture;
    seen = {frame.PresentationTime(), frame.Duration(),     frame.PictureNumber(),
            frame.DropCount(),        frame.OptionsFlags(), IsWhole(frame.Bytes()),
            frame.Bytes().size()};
    if (stage_.Key().Options.IsSideBySide) stage_.Trace().Add(PictureLine(frame));
  }
  Check(seen);
  return STATUS_SUCCESS;
}

// Every pixel of a picture has the stamp of a frame that the camera sent, also after resampling. A picture that has
// no room in its buffer isn't written at all.
bool CheckedStream::IsWhole(std::span<const std::byte> picture) const {
  const auto pixels =
      static_cast<std::size_t>(format_.Width()) * static_cast<std::size_t>(format_.Height()) * 2;
  if (pixels == 0 || pixels > picture.size()) return true;
  const auto seen = picture.first(pixels);
  const auto stamp = std::to_integer<std::uint8_t>(seen.front());
  return stage_.Camera().HasSent(stamp) && AreAllEqual(seen);
}

void CheckedStream::Check(const Frame& frame) {
  const bool isBeginning = framesSinceRun_++ < kUnevenFrames;
  stage_.CountFrame(frame.IsWhole);
  stage_.Require(frame.IsWhole || isBeginning || stage_.AllowsDisturbedFrames(),
                 "a client gets a torn frame from a camera without faults");
  stage_.Require(frame.Duration == format_.FrameInterval(), "a frame has another duration");
  stage_.Require(frame.Options == (hasClock_ ? kStamped : KSSTREAM_HEADER_OPTIONSF_SPLICEPOINT),
                 "a frame has other options");
  stage_.Require(frame.Bytes == std::min(room_, ImageBytesOf(format_)),
                 "a frame has another number of bytes");
  if (hasClock_) {
    CheckNumbers(frame);
  } else {
    stage_.Require(frame.Time == 0 && frame.Picture == 0 && frame.Drop == 0,
                   "a frame without a clock is stamped");
  }
}

// The two numbers must agree on how many frames were delivered.
void CheckedStream::CheckNumbers(const Frame& frame) {
  const LONGLONG interval = format_.FrameInterval();
  const LONGLONG number = frame.Picture - frame.Drop;
  const bool isUsual = interval > 0 && interval < kLongestInterval;
  if (isUsual) {
    const LONGLONG due = frame.Time >= interval ? frame.Time / interval : 0;
    stage_.Require(frame.Drop == std::max<LONGLONG>(0, due - number), "a drop count is wrong");
    stage_.Require(isFirst_ || frame.Time > lastTime_, "a presentation time doesn't rise");
    stage_.Require(isFirst_ || frame.Picture >= lastPicture_, "a picture number falls");
  }
  stage_.Require(number >= kFirstNumber, "a frame is delivered that is to be skipped");
  if (nextNumber_) stage_.Require(number == *nextNumber_, "a frame is lost between two");
  if (isFresh_ && isSound_) {
    stage_.Require(number == kFirstNumber, "a stream's first frame has another number");
  }
  isFirst_ = false;
  isFresh_ = false;
  nextNumber_ = number + 1;
  lastTime_ = frame.Time;
  lastPicture_ = frame.Picture;
}

}  // namespace lidcam::scenarios
