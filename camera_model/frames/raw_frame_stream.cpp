#include "camera_model/frames/raw_frame_stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/time_units.h"

namespace lidcam::camera_model {
namespace {

PixelNoise Multiplied(PixelNoise noise, double factor) {
  noise.LightOfElectron *= factor * factor;
  noise.ReadVariance *= factor * factor;
  return noise;
}

constexpr auto kMicroframesPerSecond = static_cast<double>(base::kMicroframesPerSecond);
constexpr std::uint64_t kStartDelay = 8;

constexpr std::size_t kLevelOffset = 16;
constexpr std::size_t kMeanLuminanceOffset = 23;

void PutLittleEndian(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint64_t value,
                     std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i) & 0xFF);
  }
}

}  // namespace

RawFrameStream::RawFrameStream(Bridge& bridge, Scene& scene, std::uint64_t seed)
    : bridge_(bridge), scene_(scene), seed_(seed) {}

void RawFrameStream::Restart(std::uint64_t microframe) {
  frame_.clear();
  offset_ = 0;
  bridge_.SettleExposure();
  startedAt_ = microframe;
  period_ = kMicroframesPerSecond / 30;
  lastMicroframe_ = microframe;
  nextFrameAt_ = static_cast<double>(microframe + kStartDelay);
  pausedUntil_ = 0;
  silentUntil_ = 0;
  isStalled_ = false;
}

StreamPacket RawFrameStream::Packet(std::uint64_t microframe, std::uint32_t limit) {
  if (microframe > lastMicroframe_ + 1) PassOver(microframe - lastMicroframe_ - 1, limit);
  lastMicroframe_ = microframe;
  if (isStalled_) return {{}, false, true};
  if (microframe < pausedUntil_) return {};
  if (!IsFrameUnderWay()) {
    if (static_cast<double>(microframe) < nextFrameAt_ || !bridge_.IsSensorRunning()) return {};
    BeginFrame(microframe, limit);
  }
  if (microframe < silentUntil_) {
    (void)TakeBytes(limit);
    ++packetOfFrame_;
    return {};
  }
  const std::uint64_t at = bus::FramePacket(framesBegun_, ++packetOfFrame_);
  if (const auto interruption = faults_.TakeInterruption(at)) {
    return Interrupt(*interruption, limit);
  }
  const std::span<const std::uint8_t> bytes = TakeBytes(limit);
  return faults_.IsDisturbed(at) ? Disturb(at, bytes, limit) : StreamPacket{bytes};
}

void RawFrameStream::PassOver(std::uint64_t microframes, std::uint32_t limit) {
  const std::uint64_t rest = frame_.size() - offset_;
  offset_ += static_cast<std::size_t>(std::min<std::uint64_t>(rest, microframes * limit));
}

std::span<const std::uint8_t> RawFrameStream::TakeBytes(std::uint32_t limit) {
  const std::size_t count = std::min<std::size_t>(limit, frame_.size() - offset_);
  const std::span<const std::uint8_t> bytes{frame_.data() + offset_, count};
  offset_ += count;
  return bytes;
}

StreamPacket RawFrameStream::Interrupt(const bus::BusFault& fault, std::uint32_t limit) {
  const std::uint64_t end = lastMicroframe_ + bus::MicroframesIn(fault.Amount);
  if (fault.Kind == bus::FaultKind::Stall) {
    isStalled_ = true;
    return {{}, false, true};
  }
  if (fault.Kind == bus::FaultKind::Pause) {
    // The pause counts as a packet; the bytes are sent after it, under the next number.
    pausedUntil_ = end;
    return {};
  }
  silentUntil_ = end;
  (void)TakeBytes(limit);
  return {};
}

StreamPacket RawFrameStream::Disturb(std::uint64_t at, std::span<const std::uint8_t> bytes,
                                     std::uint32_t limit) {
  disturbed_.assign(bytes.begin(), bytes.end());
  disturbed_.resize(limit);
  bus::IsochronousPacket packet{0, static_cast<std::uint32_t>(bytes.size()), bus::UsbStatus::Ok};
  faults_.Disturb(at, disturbed_, packet);
  return {std::span(disturbed_).first(packet.Length), packet.Status != bus::UsbStatus::Ok, false};
}

void RawFrameStream::CatchUp(std::uint64_t microframe) {
  const double late = static_cast<double>(microframe) - nextFrameAt_;
  if (late < period_) return;
  const auto missed = static_cast<std::uint64_t>(late / period_);
  viewNumber_ += missed;
  nextFrameAt_ = static_cast<double>(microframe);
  if (missed > 1) {
    bridge_.SettleExposure();
  } else {
    bridge_.StartFrame();
  }
}

void RawFrameStream::BeginFrame(std::uint64_t microframe, std::uint32_t limit) {
  // Frames whose packets were not read are also rendered.
  CatchUp(microframe);
  bridge_.StartFrame();
  const RawFrameGeometry geometry =
      GeometryOf(bridge_.AttachedSensor().Model(), SelectedRawSize(bridge_));
  const ExposureBanks& banks = bridge_.AttachedSensor().Exposure();
  const double start = static_cast<double>(microframe - startedAt_) / kMicroframesPerSecond;
  const SensorExposure exposure = ExposureWith(banks.BeingRead(), bridge_, light_.At(start));

  // While this frame is read out the next one collects its light, which determines the duration.
  const SensorExposure next = ExposureWith(banks.Exposing(), bridge_, light_.At(start));
  const double wirePeriod = (geometry.TotalBytes + limit - 1) / limit + 1;
  period_ = std::max(FrameSeconds(bridge_, next) * kMicroframesPerSecond, wirePeriod);
  nextFrameAt_ += period_;

  view_.Resize(geometry.Width, geometry.Height);
  scene_.Render(viewNumber_, view_);
  ExposeLines(exposure, start, geometry.Height);
  const std::uint64_t noiseSeed = (seed_ ^ (viewNumber_ * 0x9E3779B97F4A7C15U)) << 12;
  processor_.Process(view_, ReadPictureSettings(bridge_), lineExposure_,
                     Multiplied(NoiseOf(exposure), noise_), noiseSeed);

  frame_.assign(geometry.TotalBytes, 0);
  const auto picture = processor_.Yuy2();
  const std::size_t pixelBytes = std::min<std::size_t>(picture.size(), geometry.PixelBytes());
  std::memcpy(frame_.data() + kRawHeaderBytes, picture.data(), pixelBytes);
  FillHeader(geometry, exposure);

  offset_ = 0;
  packetOfFrame_ = 0;
  ++framesBegun_;
  ++viewNumber_;
}

void RawFrameStream::ExposeLines(const SensorExposure& exposure, double start,
                                 std::uint32_t lines) {
  // A line collects light until it is read out.
  const double lineSeconds = exposure.LineSeconds * 480 / std::max<std::uint32_t>(lines, 1);
  const double firstLight = start - exposure.Seconds;
  if (IsSteady(light_, firstLight, start + lines * lineSeconds)) {
    lineExposure_.assign(1, light_.At(firstLight) * exposure.Sensitivity);
    return;
  }
  lineExposure_.resize(lines);
  for (std::uint32_t line = 0; line < lines; ++line) {
    lineExposure_[line] =
        exposure.Sensitivity * MeanLight(light_, firstLight + line * lineSeconds, exposure.Seconds);
  }
}

void RawFrameStream::FillHeader(const RawFrameGeometry& geometry, const SensorExposure& exposure) {
  frame_[0] = 0xFF;
  frame_[1] = 0xD8;
  PutLittleEndian(frame_, 2, framesBegun_, 4);
  PutLittleEndian(frame_, 6, geometry.Width, 2);
  PutLittleEndian(frame_, 8, geometry.Height, 2);
  frame_[kLevelOffset] = exposure.Level;
  frame_[kMeanLuminanceOffset] = processor_.MeanLuminance();
  PutLittleEndian(frame_, 24, seed_, 8);
  // A last packet of two bytes must not look like a marker.
  frame_[frame_.size() - 2] = 0xFF;
  frame_[frame_.size() - 1] = 0xD9;
}

}  // namespace lidcam::camera_model
