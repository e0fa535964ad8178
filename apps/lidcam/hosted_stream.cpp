#include "apps/lidcam/hosted_stream.h"

#include <array>
#include <cstdio>
#include <string>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/core_camera.h"
#include "driver/core/stream_modes.h"

namespace lidcam::app {
namespace {

// Any will do: with one number, equal commands give equal bytes.
constexpr std::uint64_t kSeed = 1;

// The time of one transfer.
constexpr LONGLONG kStep = 4 * world::kMillisecond;

// What is on its way from the bus to the frame handler when the bus ends has arrived after that.
constexpr LONGLONG kSettlingTime = 100 * world::kMillisecond;

// Longer than any recovery takes.
constexpr LONGLONG kLongestStandstill = 20 * world::kSecond;

std::string StatusText(NTSTATUS status) {
  std::array<char, 12> text{};
  std::snprintf(text.data(), text.size(), "%08X", static_cast<unsigned>(status));
  return text.data();
}

world::StreamRequest RequestFor(PictureSize size) {
  return {.Width = size.Width, .Height = size.Height};
}

void StartCamera(world::HostedCamera& camera, const bus::UsbDeviceInfo& device) {
  const NTSTATUS status = camera.Start();
  if (NT_SUCCESS(status)) return;
  throw CommandError("camera " + IdentityText(device) + " did not come up: " +
                     (camera.End() == world::BusEnd::Unplugged ? "it was unplugged"
                                                               : "status " + StatusText(status)));
}

std::string SizeText(const StreamSize& size) {
  return "size " + ToString(size.Delivered) + (size.Raw ? " from " + ToString(*size.Raw) : "");
}

void AcquireSize(world::HostedCamera& camera, const StreamSize& size, PictureSize started,
                 const SettingGate& gate) {
  const NTSTATUS status = camera.Acquire(RequestFor(started));
  if (NT_SUCCESS(status)) return;
  if (camera.End() == world::BusEnd::Unplugged) throw CommandError("the camera was unplugged");
  if (gate.LastStatus() != bus::UsbStatus::Ok) {
    throw CommandError(SizeText(size) + ": no alternate setting for it was given: " +
                       std::string(bus::ToString(gate.LastStatus())));
  }
  throw CommandError(SizeText(size) + ": the stream can't be prepared: status " +
                     StatusText(status));
}

PictureSize RawSizeFor(const world::HostedCamera& camera, const StreamSize& size) {
  const CameraContext& context = *camera.Device().Camera;
  const std::optional<PictureSize> rawSize = RawSizeOf(context.RawSizeMode);
  if (!rawSize || (size.Raw && *rawSize != *size.Raw)) {
    throw CommandError("size " + ToString(size.Delivered) + ": alternate setting " +
                       std::to_string(camera.AlternateSetting()) + " gives another raw size");
  }
  if (context.RawFrameSize == 0) {
    throw CommandError("sensor " + std::string(SensorName(context.SensorType)) +
                       " has no known frame size: it can't be streamed");
  }
  return *rawSize;
}

// The raw buffers fit any size.
void DeliverAs(CameraContext& context, PictureSize size) {
  const FormatRequest request{
      .Width = size.Width,
      .Height = size.Height,
      .BitCount = 16,
      .Compression = kFourccYuy2,
      .ImageSize = static_cast<std::uint32_t>(size.Yuy2Bytes()),
      .Spare = 0,
      .AvgTimePerFrame = world::StreamRequest{}.FrameInterval,
      .AlternateSetting = 0,
  };
  std::uint32_t bufferSize = 0;
  std::uint8_t widestSetting = 0;
  NegotiateFormat(context, request, bufferSize, widestSetting);
}

/// Brings the stream up to its run.
/// @return the raw size
PictureSize BringUp(world::HostedCamera& camera, const bus::UsbDeviceInfo& device,
                    const StreamSetup& setup, SettingGate& gate) {
  StartCamera(camera, device);
  const CameraContext& context = *camera.Device().Camera;
  const StreamSize& size = setup.Size;
  const PictureSize started = size.StartsAsRaw ? size.Raw.value_or(size.Delivered) : size.Delivered;
  gate.Allow(SettingsFor({started, size.Raw}, {context.SensorType, HasLongConfiguration(device)}));
  AcquireSize(camera, size, started, gate);
  const PictureSize rawSize = RawSizeFor(camera, size);
  camera.WithCamera([&](CameraContext& record) {
    if (size.StartsAsRaw) DeliverAs(record, size.Delivered);
    for (const ControlAssignment& control : setup.Controls) Apply(record, control);
  });
  const NTSTATUS status = camera.Run();
  if (!NT_SUCCESS(status)) {
    throw CommandError(camera.End() == world::BusEnd::Unplugged
                           ? "the camera was unplugged"
                           : "the stream can't be started: status " + StatusText(status));
  }
  return rawSize;
}

}  // namespace

void RunInTimeOf(const CameraChoice& choice, const std::function<void()>& body) {
  if (choice.IsFast || CaptureFileOf(choice.Camera)) {
    RunInVirtualTime(body);
  } else {
    world::RunInRealTime(body);
  }
}

void RunInVirtualTime(const std::function<void()>& body) {
  world::RunInVirtualTime({.Seed = kSeed}, body);
}

bool HostedStream::Advance() {
  camera_.WaitForFrames(camera_.Counts().Delivered() + 1, kStep);
  if (camera_.End() == world::BusEnd::None) {
    WatchTransfers();
    return true;
  }
  LARGE_INTEGER time{};
  time.QuadPart = -kSettlingTime;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
  camera_.WaitForFrames(camera_.Counts().Delivered() + 1, 0);
  return false;
}

void HostedStream::WatchTransfers() {
  const auto now = static_cast<LONGLONG>(KeQueryInterruptTime());
  const std::uint64_t microframes = camera_.Counts().Microframes;
  if (microframes != microframes_) {
    microframes_ = microframes;
    lastRead_ = now;
  }
  if (now - lastRead_ < kLongestStandstill) return;
  throw CommandError("the stream broke off after frame " +
                     std::to_string(camera_.Counts().Delivered()) +
                     ": its transfers did not start again");
}

StreamCounts HostedStream::Counts() const {
  const world::FrameCounts counts = camera_.Counts();
  return {.Good = counts.Good,
          .Bad = counts.Bad,
          .Dropped = counts.Dropped,
          .BusBytes = counts.BusBytes,
          .Microframes = counts.Microframes};
}

double HostedStream::Seconds() const {
  return static_cast<double>(static_cast<LONGLONG>(KeQueryInterruptTime()) - start_) /
         static_cast<double>(world::kSecond);
}

void WithStream(bus::UsbBus& bus, const StreamSetup& setup,
                const std::function<void(HostedStream& stream)>& use) {
  bus::UsbDeviceInfo device;
  try {
    device = bus::EnumerateDevice(bus);
  } catch (const bus::EnumerationError& error) {
    throw CommandError(error.what());
  }
  RecordedDevice plugged(bus);
  SettingGate gate(plugged);
  world::HostedCameraOptions options{.DriverKey = DriverKeyOf(device), .Frames = setup.Frames};
  world::WithHostedCamera(gate, std::move(options), [&](world::HostedCamera& camera) {
    world::RunThenEnd(
        [&] {
          HostedStream stream(camera, device, BringUp(camera, device, setup, gate));
          use(stream);
        },
        [&] {
          if (camera.IsStarted() && camera.End() != world::BusEnd::None) camera.TellGone();
        });
  });
}

}  // namespace lidcam::app
