#include "library/frames/replay_pipeline.h"

#include <algorithm>
#include <array>
#include <string>

#include "base/time_units.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/frame/delivery/frame_delivery.h"
#include "library/frames/stream_format.h"

namespace lidcam::app {
namespace {

// Room behind the frames of a recording for those that are longer than most.
constexpr std::uint32_t kRawBufferMargin = 4096;

}  // namespace

void StreamCounts::Deliver(bool isGood, const SentFrames& sent, std::uint64_t microframe) {
  ++(isGood ? Good : Bad);
  NewestMicroframe = microframe;
  if (Delivered() == 1) {
    FirstMicroframe = microframe;
    SentAtFirst = sent;
    StartUp = sent.Ended - std::min<std::uint64_t>(sent.Ended, 1);
  }
  Settling = sent.Settling - SentAtFirst.Settling;
  const std::uint64_t sentSince = sent.Ended - SentAtFirst.Ended;
  const std::uint64_t accounted = Delivered() - 1 + Settling;
  Lost = sentSince > accounted ? sentSince - accounted : 0;
}

std::optional<double> StreamCounts::Rate() const {
  if (NewestMicroframe == FirstMicroframe) return std::nullopt;
  return static_cast<double>((Delivered() - 1) * base::kMicroframesPerSecond) /
         static_cast<double>(NewestMicroframe - FirstMicroframe);
}

bool IsGoodRawFrame(const CameraContext& context, std::uint32_t rawBytes) {
  constexpr std::int64_t kTolerance = 10;
  const std::int64_t expected = std::uint32_t{context.RawFrameSize};
  return std::abs(std::int64_t{rawBytes} - expected) <= kTolerance;
}

std::uint32_t SetRecordedFormat(CameraContext& context, PictureSize delivered, PictureSize raw,
                                std::uint32_t rawFrameSize) {
  const std::uint32_t bufferSize = DeliverAs(context, delivered);
  context.RawSizeMode = RawSizeModeOf(raw);
  context.RawFrameSize = rawFrameSize;
  return std::max(bufferSize, rawFrameSize + kRawBufferMargin);
}

ReplayPipeline::ReplayPipeline(CameraContext& context, std::uint32_t rawBufferSize,
                               PictureSize size, FrameHandler handler)
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
            PublishRawFrame(static_cast<ReplayPipeline*>(self)->published_, buffer, bytes);
          },
      .StreamRunning = [](void*) { return std::uint8_t{1}; },
      .WakeConsumer = [](void* self) { static_cast<ReplayPipeline*>(self)->Deliver(); },
  };
  PlaceRawBuffers(assembly_, rawBuffers_.data(), rawBufferSize);
  BeginAssembly(assembly_);
}

void ReplayPipeline::Take(std::span<const std::uint8_t> buffer,
                          std::span<const TransferPacket> packets) {
  for (const TransferPacket& packet : packets) counts_.BusBytes += packet.Length;
  AssembleTransfer(assembly_, context_, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                   packets.data(), static_cast<std::uint32_t>(packets.size()));
  counts_.Microframes += packets.size();
}

void ReplayPipeline::Deliver() {
  std::uint32_t rawBytes = 0;
  std::uint8_t* const raw = GetRawFrame(published_, rawBytes);
  std::uint32_t written = 0;
  DeliverFrame(context_, delivered_.data(), static_cast<std::uint32_t>(delivered_.size()), raw,
               rawBytes, written);
  // The first start ended nothing.
  const std::uint64_t ended = context_.FrameStartCount - firstFrameStart_ - 1U;
  counts_.Deliver(IsGoodRawFrame(context_, rawBytes), {.Ended = ended}, counts_.Microframes);
  handler_({.Yuy2 = delivered_, .RawFrame = {raw, rawBytes}, .Microframe = counts_.Microframes});
}

}  // namespace lidcam::app
