#include "apps/lidcam/native_stream.h"

#include <algorithm>
#include <array>
#include <string>

#include "apps/lidcam/command_error.h"
#include "driver/core/camera_lifecycle.h"
#include "driver/core/stream_modes.h"
#include "driver/frame/frame_delivery.h"

namespace lidcam::app {
namespace {

// Microframes of one transfer, as the driver keeps them in flight on current systems.
constexpr std::size_t kPacketsPerTransfer = 32;

// 30 frames a second, as the camera's formats say it.
constexpr Time100ns kFrameInterval100ns = 333333;

// The widest setting that gives a size, and the narrowest one that still does.
struct SettingSpan {
  std::uint8_t Widest;
  std::uint8_t Narrowest;
};

// On the long configuration the setting decides the raw size; at the widest one the sensor steered
// by the host also follows the size asked for.
SettingSpan SettingsForSize(PictureSize size, std::int32_t sensorType, bool hasLongConfiguration) {
  if (size.Width == 160) return {3, 2};
  if (!hasLongConfiguration) {
    throw CommandError("size " + ToString(size) +
                       " needs the long configuration; this camera sends 160x120 only");
  }
  if (size.Width == 640) return {7, 7};
  return {static_cast<std::uint8_t>(sensorType == SensorTypeVGA0708 ? 7 : 6), 4};
}

FormatRequest RequestFor(PictureSize size) {
  return {
      .Width = size.Width,
      .Height = size.Height,
      .BitCount = 16,
      .Compression = kFourccYuy2,
      .ImageSize = static_cast<std::uint32_t>(size.Yuy2Bytes()),
      .Spare = 0,
      .AvgTimePerFrame = kFrameInterval100ns,
      .AlternateSetting = 0,
  };
}

}  // namespace

double StreamCounts::Rate() const {
  return Microframes == 0 ? 0 : static_cast<double>(Delivered()) / Seconds();
}

void RequireNativeSize(PictureSize size) {
  if (std::ranges::find(kNativeSizes, size) != std::end(kNativeSizes)) return;
  throw UsageError("size " + ToString(size) +
                   " is not one that the camera sends: use 640x480, 320x240 or 160x120");
}

std::uint32_t RawSizeModeOf(PictureSize size) {
  if (size.Width == 640) return 1;
  return size.Width == 320 ? 2 : 4;
}

void SetNativeFormat(CameraContext& context, PictureSize size, std::uint32_t rawFrameSize) {
  const FormatRequest request = RequestFor(size);
  std::uint32_t bufferSize = 0;
  std::uint8_t widestSetting = 0;
  NegotiateFormat(context, request, bufferSize, widestSetting);
  context.RawSizeMode = RawSizeModeOf(size);
  context.RawFrameSize = rawFrameSize;
}

FramePath::FramePath(CameraContext& context, std::uint32_t rawBufferSize, PictureSize size,
                     FrameHandler handler)
    : context_(context),
      size_(size),
      handler_(std::move(handler)),
      rawBuffers_(std::size_t{2} * rawBufferSize),
      delivered_(size.Yuy2Bytes()),
      firstFrameStart_(context.FrameStartCount) {
  assembly_.Sink = {
      .Context = this,
      .IsProcessing = [](void*) { return std::uint8_t{0}; },
      .PublishRawFrame =
          [](void* self, std::uint8_t* buffer, std::uint32_t bytes) {
            PublishRawFrame(static_cast<FramePath*>(self)->published_, buffer, bytes);
          },
      .StreamRunning = [](void*) { return std::uint8_t{1}; },
      .WakeConsumer = [](void* self) { static_cast<FramePath*>(self)->Deliver(); },
  };
  PlaceRawBuffers(assembly_, rawBuffers_.data(), rawBufferSize);
  BeginAssembly(assembly_);
}

void FramePath::Take(std::span<const std::uint8_t> buffer,
                     std::span<const TransferPacket> packets) {
  for (const TransferPacket& packet : packets) counts_.BusBytes += packet.Length;
  AssembleTransfer(assembly_, context_, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                   packets.data(), static_cast<std::uint32_t>(packets.size()));
  counts_.Microframes += packets.size();
  // The frame that is still being received counts neither way.
  const std::uint64_t starts = context_.FrameStartCount - firstFrameStart_;
  const std::uint64_t ended = starts == 0 ? 0 : starts - 1;
  counts_.Dropped = ended > counts_.Delivered() ? ended - counts_.Delivered() : 0;
}

void FramePath::Deliver() {
  std::uint32_t rawBytes = 0;
  std::uint8_t* const raw = GetRawFrame(published_, rawBytes);
  std::uint32_t written = 0;
  DeliverFrame(context_, delivered_.data(), static_cast<std::uint32_t>(delivered_.size()), raw,
               rawBytes, written);
  constexpr std::int64_t kTolerance = 10;
  const std::int64_t expected = std::uint32_t{context_.RawFrameSize};
  const bool isGood = std::abs(std::int64_t{rawBytes} - expected) <= kTolerance;
  ++(isGood ? counts_.Good : counts_.Bad);
  handler_(delivered_);
}

NativeStream::NativeStream(CoreCamera& camera, PictureSize size)
    : camera_(camera), size_(size), request_(RequestFor(size)) {
  std::uint8_t widestSetting = 0;
  NegotiateFormat(camera_.Context(), request_, rawBufferSize_, widestSetting);
  SelectSetting();
}

// From the setting on there is a stream to end: an exception below runs the destructor.
NativeStream::NativeStream(CoreCamera& camera, PictureSize size, FrameHandler handler)
    : NativeStream(camera, size) {
  CameraContext& context = camera_.Context();
  MarkStreaming(context);
  SelectStreamMode(context, request_);
  if (context.RawSizeMode != RawSizeModeOf(size)) {
    throw CommandError("size " + ToString(size) + ": alternate setting " +
                       std::to_string(setting_.Setting) + " gives another raw size");
  }
  if (context.RawFrameSize == 0) {
    throw CommandError("sensor " + std::string(SensorName(context.SensorType)) +
                       " has no known frame size: it can't be streamed");
  }
  path_ = std::make_unique<FramePath>(context, rawBufferSize_, size, std::move(handler));
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

void NativeStream::SelectSetting() {
  const SettingSpan span =
      SettingsForSize(size_, camera_.Context().SensorType, camera_.HasLongConfiguration());
  bus::UsbStatus status = bus::UsbStatus::Stalled;
  for (std::uint8_t wanted = span.Widest; wanted >= span.Narrowest; --wanted) {
    for (const bus::AlternateSetting& setting : camera_.Device().AlternateSettings) {
      if (setting.Setting != wanted || setting.IsochronousEndpoint == 0) continue;
      status = camera_.Bus().SelectSetting(setting.Interface, setting.Setting);
      if (status != bus::UsbStatus::Ok) continue;
      setting_ = setting;
      request_.AlternateSetting = wanted;
      return;
    }
  }
  throw CommandError("size " + ToString(size_) + ": no alternate setting for it was given: " +
                     std::string(bus::ToString(status)));
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
