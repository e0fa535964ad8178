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

// Room behind the frames of a recording for those that are longer than most.
constexpr std::uint32_t kRawBufferMargin = 4096;

// 30 frames a second, as the camera's formats say it.
constexpr Time100ns kFrameInterval100ns = 333333;

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

void NegotiateSize(CameraContext& context, PictureSize size, std::uint32_t& rawBufferSize) {
  std::uint8_t widestSetting = 0;
  NegotiateFormat(context, RequestFor(size), rawBufferSize, widestSetting);
}

}  // namespace

double StreamCounts::Rate() const {
  return Microframes == 0 ? 0 : static_cast<double>(Delivered()) / Seconds();
}

std::uint32_t SetRecordedFormat(CameraContext& context, PictureSize delivered, PictureSize raw,
                                std::uint32_t rawFrameSize) {
  std::uint32_t bufferSize = 0;
  NegotiateSize(context, delivered, bufferSize);
  context.RawSizeMode = RawSizeModeOf(raw);
  context.RawFrameSize = rawFrameSize;
  return std::max(bufferSize, rawFrameSize + kRawBufferMargin);
}

FramePath::FramePath(CameraContext& context, std::uint32_t rawBufferSize, PictureSize size,
                     FrameHandler handler)
    : context_(context),
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
  handler_({.Yuy2 = delivered_, .RawFrame = {raw, rawBytes}, .Microframe = counts_.Microframes});
}

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
  path_ = std::make_unique<FramePath>(context, rawBufferSize_, size.Delivered, std::move(handler));
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
  const CameraKind kind{camera_.Context().SensorType, camera_.HasLongConfiguration()};
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
