#include "library/camera/streaming/camera_stream.h"

#include <algorithm>
#include <string>
#include <utility>

#include "base/time_units.h"
#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/frames/stream_format.h"
#include "platform/host/nt/system/status_words.h"
#include "testbed/installed_driver.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

// The time of one transfer.
constexpr LONGLONG kStep = 4 * base::kUnitsPerMillisecond;

// After this time, data on the way from the bus to the application at the bus's end have been
// delivered.
constexpr LONGLONG kSettlingTime = 100 * base::kUnitsPerMillisecond;

// Longer than any recovery takes.
constexpr LONGLONG kLongestStandstill = 20 * base::kUnitsPerSecond;

std::string SizeText(const StreamSize& size) {
  return "size " + ToString(size.Delivered) + (size.Raw ? " from " + ToString(*size.Raw) : "");
}

PictureSize StartedSizeOf(const StreamSize& size) {
  return size.StartsAsRaw ? size.Raw.value_or(size.Delivered) : size.Delivered;
}

// A stream that starts as one of another size needs buffers for what it delivers later.
client::VideoFormat FormatFor(const client::Camera& camera, const StreamSetup& setup) {
  const StreamSize& size = setup.Size;
  const PictureSize started = StartedSizeOf(size);
  client::VideoFormat format = camera.FormatOf(started.Width, started.Height, setup.FrameInterval);
  auto& imageBytes = format.Header().VideoInfoHeader.bmiHeader.biSizeImage;
  imageBytes = std::max(imageBytes, static_cast<DWORD>(size.Delivered.Yuy2Bytes()));
  return format;
}

void Prepare(OpenedCamera& opened, client::Stream& pin, const StreamSize& size) {
  const NTSTATUS status = pin.SetState(KSSTATE_ACQUIRE);
  if (NT_SUCCESS(status)) return;
  if (opened.IsUnplugged()) throw CommandError("the camera was unplugged", Failure::Unplugged);
  const bus::UsbStatus setting = opened.Gate().LastStatus();
  if (setting != bus::UsbStatus::Ok) {
    throw CommandError(SizeText(size) + ": no alternate setting for it was given: " +
                       std::string(bus::ToString(setting)));
  }
  throw CommandError(SizeText(size) +
                     ": the stream can't be prepared: " + host::StatusText(status));
}

PictureSize RawSizeFor(const OpenedCamera& opened, const StreamSize& size) {
  std::optional<PictureSize> rawSize;
  std::uint32_t rawFrameSize = 0;
  opened.WithContext([&](const CameraContext& context) {
    rawSize = RawSizeOf(context.RawSizeMode);
    rawFrameSize = context.RawFrameSize;
  });
  if (!rawSize || (size.Raw && *rawSize != *size.Raw)) {
    throw CommandError(SizeText(size) + ": the alternate setting that was given has another size");
  }
  if (rawFrameSize == 0) {
    throw CommandError("sensor " + std::string(SensorName(opened.SensorType())) +
                       " has no known frame size: it can't be streamed");
  }
  return *rawSize;
}

std::uint64_t MicroframesOf(std::chrono::microseconds time) {
  constexpr std::chrono::microseconds kMicroframe{base::kMicrosecondsPerMicroframe};
  return static_cast<std::uint64_t>((time + kMicroframe - std::chrono::microseconds{1}) /
                                    kMicroframe);
}

/// Prepares the stream up to its run.
/// @return the raw size
PictureSize BringUp(OpenedCamera& opened, client::Stream& pin, const StreamSetup& setup) {
  const StreamSize& size = setup.Size;
  opened.Gate().Allow(SettingsFor({StartedSizeOf(size), size.Raw},
                                  {opened.SensorType(), HasLongConfiguration(opened.Device())}));
  pin.UseClock();
  Prepare(opened, pin, size);
  const PictureSize rawSize = RawSizeFor(opened, size);
  if (size.StartsAsRaw) {
    opened.WithContext([&](CameraContext& context) { DeliverAs(context, size.Delivered); });
  }
  for (const ControlAssignment& control : setup.Controls) Apply(opened.Camera(), control);
  return rawSize;
}

}  // namespace

CameraStream::CameraStream(OpenedCamera& opened, client::Stream& pin, PictureSize rawSize,
                           const StreamSetup& setup)
    : opened_(opened),
      pin_(pin),
      picture_(setup.Size.Delivered),
      rawSize_(rawSize),
      frames_(setup.Frames) {
  if (setup.Duration) opened_.Sending().EndAfter(MicroframesOf(*setup.Duration));
  const auto endAtLast = [this, most = setup.MostFrames](std::uint64_t count) {
    if (most && count >= *most) opened_.Sending().End();
  };
  if (testbed::IsDriverOfImage()) {
    messages_.emplace([this](const std::string& message) {
      constexpr std::string_view kReceived = "ReceivedRawFrameBuffer = ";
      if (message.starts_with(kReceived) && message.substr(kReceived.size()) != "0") ++wrongSizes_;
    });
  }
  opened_.WithContext([&](const CameraContext& context) {
    if (setup.Watching == DeliveryWatching::EachDelivery && !messages_) {
      watch_.emplace(
          context, [this] { return SinceRun().Microframes; }, endAtLast);
    }
    last_.IsAutoExposure = context.AutoExposure != 0;
    last_.LightState = context.LightState;
  });
}

void CameraStream::Run() {
  atRun_ = opened_.Meter();
  start_ = static_cast<LONGLONG>(KeQueryInterruptTime());
  lastRead_ = start_;
  try {
    pin_.Run();
  } catch (const client::ClientError& error) {
    if (opened_.IsUnplugged()) throw CommandError("the camera was unplugged", Failure::Unplugged);
    throw CommandError("the stream can't be started: " + host::StatusText(error.Status()));
  }
}

void CameraStream::Stop() {
  watch_.reset();
  if (opened_.End() != testbed::BusEnd::None) opened_.TellGone();
  if (opened_.IsToldGone()) return;
  try {
    pin_.Stop();
  } catch (const client::ClientError&) {
    // All frames have been delivered, and closing the pin stops it: the result doesn't matter.
  }
}

bool CameraStream::Advance() {
  if (opened_.End() != testbed::BusEnd::None) return DrainAtEnd();
  if (!TakeNext(kStep)) WatchTransfers();
  return true;
}

// The driver gets the surprise removal only when no more frames arrive, because it then completes
// all buffers.
bool CameraStream::DrainAtEnd() {
  while (TakeNext(kSettlingTime)) {
  }
  if (watch_) watch_->End();
  opened_.TellGone();
  while (TakeNext(0)) {
  }
  return false;
}

void CameraStream::TakeRest() {
  opened_.Sending().End();
  if (opened_.IsToldGone()) return;
  while (TakeNext(kSettlingTime)) {
  }
}

bool CameraStream::TakeNext(LONGLONG timeout) {
  client::NextFrame next = pin_.Next(timeout);
  if (!next.Picture) return false;
  Take(*next.Picture);
  return true;
}

// Nothing of a device that is gone. A driver without a trace prints a wrong size ahead of its frame.
std::optional<DeliveryReport> CameraStream::LoopNow() {
  std::optional<DeliveryReport> report;
  const bool isGood = std::exchange(wrongSizesSeen_, wrongSizes_.load()) == wrongSizes_;
  opened_.WithContext([&](const CameraContext& context) {
    report = DeliveryReport{
        .IsGood = isGood,
        .IsAutoExposure = context.AutoExposure != 0,
        .Microframe = messages_ ? SinceRun().Microframes : 0,
        .Loop = ReadFrameRow(context, {.Yuy2 = {}, .RawFrame = {}, .Microframe = 0}, {}),
    };
  });
  return report;
}

// Nothing new of a device that is gone.
std::int64_t CameraStream::CountLost(const FramePosition& position) {
  std::int64_t count = lostCount_;
  opened_.WithContext([&](const CameraContext& context) {
    count = lost_.Take({.FrameStarts = context.FrameStartCount,
                        .MissingTimes = position.DropCount,
                        .LightState = context.LightState});
  });
  return lostCount_ = count;
}

void CameraStream::Take(client::Frame& frame) {
  const auto bytes = frame.Bytes();
  const std::size_t size = std::min(bytes.size(), picture_.Yuy2Bytes());
  const FramePosition position{.PictureNumber = frame.PictureNumber(),
                               .DropCount = frame.DropCount(),
                               .PresentationTime = frame.PresentationTime()};
  const std::optional<DeliveryReport> report =
      watch_ ? watch_->Take(position.PictureNumber) : LoopNow();
  if (report) newest_ = *report;
  const StreamFrame taken{
      .Yuy2 = {reinterpret_cast<const std::uint8_t*>(bytes.data()), size},
      .Position = position,
      .Report = report.value_or(DeliveryReport{}),
      .LostCount = CountLost(position),
      .Buffer = frame,
  };
  counts_.Deliver(taken.Report.IsGood, newest_.Sent, newest_.Microframe);
  last_.Position = position;
  if (report) {
    last_.IsAutoExposure = report->IsAutoExposure;
    last_.LightState = report->Loop.State;
  }
  if (frames_) frames_(taken);
}

void CameraStream::WatchTransfers() {
  const auto now = static_cast<LONGLONG>(KeQueryInterruptTime());
  const std::uint64_t microframes = opened_.Meter().Microframes;
  if (microframes != microframes_) {
    microframes_ = microframes;
    lastRead_ = now;
  }
  if (now - lastRead_ < kLongestStandstill) return;
  throw CommandError("the stream broke off after frame " + std::to_string(counts_.Delivered()) +
                     ": its transfers did not start again");
}

testbed::BusMeter CameraStream::SinceRun() const {
  const testbed::BusMeter now = opened_.Meter();
  return {.Bytes = now.Bytes - atRun_.Bytes, .Microframes = now.Microframes - atRun_.Microframes};
}

StreamCounts CameraStream::Counts() const {
  StreamCounts counts = counts_;
  const testbed::BusMeter meter = SinceRun();
  counts.BusBytes = meter.Bytes;
  counts.Microframes = meter.Microframes;
  return counts;
}

StreamProgress CameraStream::Progress() const {
  StreamProgress progress = last_;
  progress.Counts = Counts();
  return progress;
}

double CameraStream::Seconds() const {
  return base::SecondsOfUnits(static_cast<LONGLONG>(KeQueryInterruptTime()) - start_);
}

void WithStream(bus::UsbBus& bus, const StreamSetup& setup,
                const std::function<void(CameraStream& stream)>& use) {
  WithOpenedCamera(bus, [&](OpenedCamera& opened) { WithStreamOf(opened, setup, use); });
}

void WithStreamOf(OpenedCamera& opened, const StreamSetup& setup,
                  const std::function<void(CameraStream& stream)>& use) {
  client::Stream pin(opened.Camera(), FormatFor(opened.Camera(), setup),
                     {.Buffers = setup.Buffers, .Memory = setup.Memory});
  const PictureSize rawSize = BringUp(opened, pin, setup);
  CameraStream stream(opened, pin, rawSize, setup);
  testbed::RunThenEnd(
      [&] {
        stream.Run();
        use(stream);
      },
      [&] { stream.Stop(); });
}

}  // namespace lidcam::app
