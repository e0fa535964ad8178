#include "apps/lidcam/stream/replay_run.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "apps/lidcam/frames/progress.h"
#include "base/time_units.h"
#include "bus/capture/files/capture_input.h"
#include "bus/capture/replay/capture_bus.h"
#include "bus/capture/replay/isochronous_packet_reader.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/source/recorded_settings.h"

namespace lidcam::app {
namespace {

bool TellsBringUp(const bus::RecordedDevice& device) {
  return device.Identity.has_value() && device.RegisterRequests > 0;
}

std::string IdentityOf(const bus::RecordedDevice& device) {
  if (!device.Identity) return {};
  bus::UsbDeviceInfo info;
  info.Vendor = device.Identity->Vendor;
  info.Product = device.Identity->Product;
  return IdentityText(info);
}

// Only the camera's frames are known: a separate record holds the format.
StreamResult ReplayFramesOnly(const bus::CaptureSource& source, const ReplaySize& size,
                              const StreamLimits& limits, FrameWriter* writer,
                              const Verbosity& verbosity) {
  const auto context = std::make_unique<CameraContext>();
  const auto rawBytes = static_cast<std::uint32_t>(EstimateRawBytes(source));
  const std::uint32_t bufferSize = SetRecordedFormat(*context, size.Delivered, size.Raw, rawBytes);
  LimitedWriter limited(writer, limits);
  ReplayPipeline path(
      *context, bufferSize, size.Delivered, [&limited](const DeliveredFrame& frame) {
        limited.Write({.Yuy2 = frame.Yuy2, .Time = base::TimeOfMicroframes(frame.Microframe)});
      });
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
                      .Identity = IdentityOf(source.Device()),
                      .Written = limited.Written(),
                      .Troubles = troubles};
  if (IsInterrupted() && !isEnough() && result.Counts.Delivered() > 0) {
    NoteInterrupt(result, limits);
  }
  return result;
}

}  // namespace

StreamResult RunReplay(const bus::CaptureSource& source, const ReplaySize& size,
                       const StreamLimits& limits, FrameWriter* writer,
                       const Verbosity& verbosity) {
  std::unique_ptr<bus::CaptureBus> recorded;
  if (TellsBringUp(source.Device())) recorded = std::make_unique<bus::CaptureBus>(source);
  if (!recorded || !AdoptRecordedSettings(*recorded)) {
    std::fprintf(
        stderr,
        "lidcam: %s: the camera's whole bring-up is not in it: its frames are replayed without the "
        "exposure control, which discards some\n",
        bus::CaptureName(source.Path()).c_str());
    return ReplayFramesOnly(source, size, limits, writer, verbosity);
  }
  const StreamSize started{.Delivered = size.Delivered, .Raw = size.Raw, .StartsAsRaw = true};
  StreamResult result;
  RunInVirtualTime([&] { result = RunStream(*recorded, started, limits, {}, writer, verbosity); });
  result.ProcessorSeconds.reset();
  return result;
}

}  // namespace lidcam::app
