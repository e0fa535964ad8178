#include "simulator/raw_frame_stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace lidcam::simulator {
namespace {

constexpr double kMicroframesPerSecond = 8000;
constexpr std::uint64_t kStartDelay = 8;
constexpr std::uint64_t kWithoutEnd = UINT64_MAX;
constexpr double kSilentGain = 1.3;

constexpr std::size_t kLevelOffset = 16;
constexpr std::size_t kMeanLumaOffset = 23;

void PutLittleEndian(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint64_t value,
                     std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i) & 0xFF);
  }
}

std::uint64_t EndOfRun(std::uint64_t microframe, std::uint32_t length) {
  return length == 0 ? kWithoutEnd : microframe + length;
}

}  // namespace

RawFrameStream::RawFrameStream(const Bridge& bridge, Scene& scene, std::uint64_t seed)
    : bridge_(bridge), scene_(scene), seed_(seed) {}

void RawFrameStream::Restart(std::uint64_t microframe) {
  frame_.clear();
  offset_ = 0;
  lastMicroframe_ = microframe;
  nextFrameAt_ = static_cast<double>(microframe + kStartDelay);
  firstFrameOfStream_ = framesBegun_;
  packetOfStream_ = 0;
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
    ++packetOfStream_;
    return {};
  }
  const PacketFault* fault =
      faults_.FaultFor(framesBegun_ - 1 - firstFrameOfStream_, packetOfFrame_, packetOfStream_);
  ++packetOfFrame_;
  ++packetOfStream_;
  return fault != nullptr ? ApplyFault(*fault, limit) : StreamPacket{TakeBytes(limit)};
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

StreamPacket RawFrameStream::ApplyFault(const PacketFault& fault, std::uint32_t limit) {
  switch (fault.Kind) {
    case FaultKind::Stall:
      isStalled_ = true;
      return {{}, false, true};
    case FaultKind::EmptyRun:
      // The pause counts as a packet; the bytes go out after it, under the next number.
      pausedUntil_ = EndOfRun(lastMicroframe_, fault.Microframes);
      return {};
    case FaultKind::Silence:
      silentUntil_ = EndOfRun(lastMicroframe_, fault.Microframes);
      (void)TakeBytes(limit);
      return {};
    default:
      disturbed_ = Disturb(TakeBytes(limit), fault.Kind, limit);
      return {disturbed_.Bytes, disturbed_.HasBusError, false};
  }
}

void RawFrameStream::BeginFrame(std::uint64_t microframe, std::uint32_t limit) {
  const RawFrameGeometry geometry =
      GeometryOf(bridge_.AttachedSensor().Model(), SelectedRawSize(bridge_));
  const SensorExposure exposure = ReadExposure(bridge_, light_);
  const double clockPeriod = FrameSeconds(bridge_, exposure) * kMicroframesPerSecond;
  const double wirePeriod = (geometry.TotalBytes + limit - 1) / limit + 1;
  const double period = std::max(clockPeriod, wirePeriod);

  // Frames that nobody fetched have been taken all the same.
  const double late = static_cast<double>(microframe) - nextFrameAt_;
  if (late >= period) {
    viewNumber_ += static_cast<std::uint64_t>(late / period);
    nextFrameAt_ = static_cast<double>(microframe);
  }
  nextFrameAt_ += period;

  view_.Resize(geometry.Width, geometry.Height);
  scene_.Render(viewNumber_, view_);
  ExposeLines(exposure, microframe, geometry.Height);
  processor_.Process(view_, ReadPictureSettings(bridge_), lineExposure_);

  frame_.assign(geometry.TotalBytes, 0);
  const auto picture = processor_.Yuy2();
  const std::size_t pixelBytes = std::min<std::size_t>(picture.size(), geometry.PixelBytes());
  std::memcpy(frame_.data() + kRawHeaderBytes, picture.data(), pixelBytes);
  AddNoise(exposure);
  FillHeader(geometry, exposure);

  offset_ = 0;
  packetOfFrame_ = 0;
  ++framesBegun_;
  ++viewNumber_;
}

void RawFrameStream::ExposeLines(const SensorExposure& exposure, std::uint64_t microframe,
                                 std::uint32_t lines) {
  if (light_.MainsRate == 0) {
    lineExposure_.assign(1, exposure.Relative);
    return;
  }
  const double start = static_cast<double>(microframe) / kMicroframesPerSecond;
  const double lineSeconds = exposure.LineSeconds * 480 / std::max<std::uint32_t>(lines, 1);
  lineExposure_.resize(lines);
  for (std::uint32_t line = 0; line < lines; ++line) {
    lineExposure_[line] =
        exposure.Relative * MainsFactor(light_, exposure, start + line * lineSeconds);
  }
}

void RawFrameStream::AddNoise(const SensorExposure& exposure) {
  const int amplitude =
      static_cast<int>(std::lround(std::clamp((exposure.Gain - kSilentGain) * 6, 0.0, 12.0)));
  if (amplitude == 0) return;
  std::mt19937_64 random{seed_ ^ (viewNumber_ * 0x9E3779B97F4A7C15U)};
  const auto span = static_cast<std::uint64_t>(2 * amplitude + 1);
  std::uint64_t bits = 0;
  const std::size_t end = frame_.size() - kRawClosingBytes;
  for (std::size_t at = kRawHeaderBytes, i = 0; at < end; at += 2, ++i) {
    if (i % 4 == 0) bits = random();
    const int offset = static_cast<int>((bits & 0xFFFF) * span >> 16) - amplitude;
    bits >>= 16;
    frame_[at] = static_cast<std::uint8_t>(std::clamp(frame_[at] + offset, 1, 254));
  }
}

std::uint8_t RawFrameStream::MeanLuma() const {
  std::uint64_t sum = 0;
  std::uint64_t count = 0;
  const std::size_t end = frame_.size() - kRawClosingBytes;
  for (std::size_t at = kRawHeaderBytes; at < end; at += 2) {
    sum += frame_[at];
    ++count;
  }
  return static_cast<std::uint8_t>(count == 0 ? 0 : sum / count);
}

void RawFrameStream::FillHeader(const RawFrameGeometry& geometry, const SensorExposure& exposure) {
  frame_[0] = 0xFF;
  frame_[1] = 0xD8;
  PutLittleEndian(frame_, 2, framesBegun_, 4);
  PutLittleEndian(frame_, 6, geometry.Width, 2);
  PutLittleEndian(frame_, 8, geometry.Height, 2);
  frame_[kLevelOffset] = exposure.Level;
  frame_[kMeanLumaOffset] = MeanLuma();
  PutLittleEndian(frame_, 24, seed_, 8);
  // A last packet of two bytes must not look like a marker.
  frame_[frame_.size() - 2] = 0xFF;
  frame_[frame_.size() - 1] = 0xD9;
}

}  // namespace lidcam::simulator
