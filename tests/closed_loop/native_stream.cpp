#include "tests/closed_loop/native_stream.h"

#include <algorithm>
#include <string>

#include "apps/lidcam/base/command_error.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/stream_modes.h"

namespace lidcam::app {
namespace {

// Microframes of one transfer, as the driver keeps them in flight on current systems.
constexpr std::size_t kPacketsPerTransfer = 32;

FormatRequest RequestFor(PictureSize size) {
  return {
      .Width = size.Width,
      .Height = size.Height,
      .BitCount = 16,
      .Compression = kFourccYuy2,
      .ImageSize = static_cast<std::uint32_t>(size.Yuy2Bytes()),
      .Spare = 0,
      .AvgTimePerFrame = 333333,  // 30 frames a second
      .AlternateSetting = 0,
  };
}

void NegotiateSize(CameraContext& context, PictureSize size, std::uint32_t& rawBufferSize) {
  std::uint8_t widestSetting = 0;
  NegotiateFormat(context, RequestFor(size), rawBufferSize, widestSetting);
}

}  // namespace

NativeStream::NativeStream(CoreCamera& camera, const StreamSize& size) : camera_(camera) {
  const StreamSize start{size.StartsAsRaw ? size.Raw.value_or(size.Delivered) : size.Delivered,
                         size.Raw};
  request_ = RequestFor(start.Delivered);
  NegotiateSize(camera_.Context(), start.Delivered, rawBufferSize_);
  SelectSetting(start);
}

// From the setting on there is a stream to end: an exception below runs the destructor.
NativeStream::NativeStream(CoreCamera& camera, const StreamSize& size, FrameHandler handler)
    : NativeStream(camera, size) {
  CameraContext& context = camera_.Context();
  MarkStreaming(context);
  SelectStreamMode(context, request_);
  const std::optional<PictureSize> rawSize = RawSizeOf(context.RawSizeMode);
  if (!rawSize || (size.Raw && *rawSize != *size.Raw)) {
    throw CommandError("size " + ToString(size.Delivered) + ": alternate setting " +
                       std::to_string(setting_.Setting) + " gives another raw size");
  }
  if (context.RawFrameSize == 0) {
    throw CommandError("sensor " + std::string(SensorName(context.SensorType)) +
                       " has no known frame size: it can't be streamed");
  }
  rawSize_ = *rawSize;
  if (size.StartsAsRaw) NegotiateSize(context, size.Delivered, rawBufferSize_);
  path_ =
      std::make_unique<ReplayPipeline>(context, rawBufferSize_, size.Delivered, std::move(handler));
  buffer_.resize(kPacketsPerTransfer * setting_.BytesPerMicroframe);
  packets_.resize(kPacketsPerTransfer);
  transferPackets_.resize(kPacketsPerTransfer);
}

NativeStream::~NativeStream() {
  EndStream(camera_.Context());
  camera_.SaveSettings();
  StreamIdle(camera_.Context());
  camera_.Bus().SelectSetting(setting_.Interface, 0);
}

void NativeStream::SelectSetting(const StreamSize& size) {
  const CameraKind kind{camera_.Context().SensorType, HasLongConfiguration(camera_.Device())};
  bus::UsbStatus status = bus::UsbStatus::Stalled;
  for (const std::uint8_t wanted : SettingsFor(size, kind)) {
    for (const bus::AlternateSetting& setting : camera_.Device().AlternateSettings) {
      if (setting.Setting != wanted || setting.IsochronousEndpoint == 0) continue;
      status = camera_.Bus().SelectSetting(setting.Interface, setting.Setting);
      if (status != bus::UsbStatus::Ok) continue;
      setting_ = setting;
      request_.AlternateSetting = wanted;
      return;
    }
  }
  const std::string raw = size.Raw ? " from " + ToString(*size.Raw) : "";
  throw CommandError(
      "size " + ToString(size.Delivered) + raw +
      ": no alternate setting for it was given: " + std::string(bus::ToString(status)));
}

bool NativeStream::ReadTransfer() {
  const bus::IsochronousResult result =
      camera_.Bus().ReadIsochronous(setting_.IsochronousEndpoint, buffer_, packets_);
  if (result.Status == bus::UsbStatus::EndOfCapture) return false;
  // Packets that arrived before the bus failed are frames, too.
  std::ranges::transform(packets_, transferPackets_.begin(),
                         [](const bus::IsochronousPacket& packet) {
                           return TransferPacket{packet.Offset, packet.Length};
                         });
  path_->Take(buffer_, transferPackets_);
  if (result.Status != bus::UsbStatus::Ok) {
    throw CommandError("the stream broke off: " + std::string(bus::ToString(result.Status)));
  }
  return true;
}

}  // namespace lidcam::app
