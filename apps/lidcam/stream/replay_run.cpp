#include "apps/lidcam/stream/replay_run.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "apps/lidcam/frames/progress.h"
#include "bus/capture/replay/capture_bus.h"
#include "bus/capture/replay/isochronous_packet_reader.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/recorded_settings.h"

namespace lidcam::app {
namespace {

// Header and closing bytes of a raw frame.
constexpr std::int64_t kRawFrameExtra = 66;

// Sensors deviate from their size's pixels by a few lines at most.
constexpr std::int64_t kSizeTolerancePercent = 15;

bool IsOfSize(std::uint64_t rawBytes, PictureSize size) {
  const std::int64_t expected = static_cast<std::int64_t>(size.Yuy2Bytes()) + kRawFrameExtra;
  return std::abs(static_cast<std::int64_t>(rawBytes) - expected) * 100 <=
         expected * kSizeTolerancePercent;
}

std::uint64_t EstimateRawBytes(const bus::CaptureSource& source) {
  bus::IsochronousPacketReader packets(source);
  const auto estimate = bus::EstimateRawFrameSize(packets);
  if (!estimate) {
    throw CommandError("capture '" + source.Path() +
                       "' holds no two frame starts: there is no whole frame to replay");
  }
  return estimate->Bytes;
}

bool TellsBringUp(const bus::RecordedDevice& device) {
  return device.Identity.has_value() && device.RegisterRequests > 0;
}

// Only the camera's frames are known: a separate record holds the format.
StreamResult ReplayFramesOnly(const bus::CaptureSource& source, const ReplaySize& size,
                              const StreamLimits& limits, FrameWriter* writer,
                              const Verbosity& verbosity) {
  const auto context = std::make_unique<CameraContext>();
  const auto rawBytes = static_cast<std::uint32_t>(EstimateRawBytes(source));
  const std::uint32_t bufferSize = SetRecordedFormat(*context, size.Delivered, size.Raw, rawBytes);
  LimitedWriter limited(writer, limits);
  ReplayPipeline path(*context, bufferSize, size.Delivered,
                      [&limited](const DeliveredFrame& frame) { limited.Write(frame.Yuy2); });
  bus::IsochronousPacketReader reader(source);
  bus::IsochronousPayload payload;
  ProgressLine progress(!verbosity.IsQuiet);
  const auto isEnough = [&] {
    return limits.Frames && path.Counts().Delivered() >= *limits.Frames;
  };
  std::vector<std::string> troubles;
  try {
    while (!IsInterrupted() && !isEnough() && reader.Next(payload)) {
      const TransferPacket packet{0, static_cast<std::uint32_t>(payload.Data.size())};
      path.Take(payload.Data, {&packet, 1});
      progress.Show({.Counts = path.Counts()});
    }
  } catch (const CommandError& error) {
    if (path.Counts().Delivered() == 0) throw;
    troubles.emplace_back(error.what());
  }
  StreamResult result{.Counts = path.Counts(),
                      .Size = size.Delivered,
                      .RawSize = size.Raw,
                      .Written = limited.Written(),
                      .Troubles = troubles};
  if (IsInterrupted() && !isEnough() && result.Counts.Delivered() > 0) {
    NoteInterrupt(result, limits);
  }
  return result;
}

}  // namespace

PictureSize EstimateRawSize(const bus::CaptureSource& source) {
  const std::uint64_t rawBytes = EstimateRawBytes(source);
  for (const PictureSize size : kRawSizes) {
    if (IsOfSize(rawBytes, size)) return size;
  }
  throw CommandError("capture '" + source.Path() + "' holds raw frames of " +
                     std::to_string(rawBytes) +
                     " bytes, which fits none of 640x480, 320x240 and 160x120");
}

StreamSize FitToCamera(const StreamSize& size, const CameraChoice& camera) {
  const std::optional<std::string> capture = CaptureFileOf(camera.Camera);
  if (!capture) return size;
  try {
    const PictureSize raw = EstimateRawSize(OpenCapture(*capture, camera.Device));
    if (size.Raw && *size.Raw != raw) {
      throw CommandError("raw size " + ToString(*size.Raw) + " is not in capture '" + *capture +
                         "': its frames are of " + ToString(raw));
    }
    return {.Delivered = size.Delivered, .Raw = raw, .StartsAsRaw = true};
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

StreamResult RunReplay(const bus::CaptureSource& source, const ReplaySize& size,
                       const StreamLimits& limits, FrameWriter* writer,
                       const Verbosity& verbosity) {
  if (!TellsBringUp(source.Device())) {
    return ReplayFramesOnly(source, size, limits, writer, verbosity);
  }
  bus::CaptureBus recorded(source);
  AdoptRecordedSettings(recorded);
  const StreamSize started{.Delivered = size.Delivered, .Raw = size.Raw, .StartsAsRaw = true};
  StreamResult result;
  RunInVirtualTime([&] { result = RunStream(recorded, started, limits, {}, writer, verbosity); });
  result.ProcessorSeconds.reset();
  return result;
}

}  // namespace lidcam::app
