#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "apps/lidcam/stream_size.h"
#include "apps/lidcam/units.h"
#include "driver/core/camera_context.h"
#include "driver/frame/frame_assembly.h"

namespace lidcam::app {

/// What became of a stream's frames so far.
struct StreamCounts {
  std::uint64_t Good = 0;  ///< delivered with the size that the sensor's frames have
  std::uint64_t Bad = 0;   ///< delivered with another size
  /// Of a stream: what its newest frame's header says. Of a replay: begun on the bus and not
  /// delivered.
  std::uint64_t Dropped = 0;
  std::uint64_t DroppedAtStart = 0;  ///< of those, how many a stream's first frame counted already
  std::uint64_t BusBytes = 0;        ///< bytes of all packets
  std::uint64_t Microframes = 0;     ///< bus time since the stream's start

  [[nodiscard]] std::uint64_t Delivered() const { return Good + Bad; }
  [[nodiscard]] double Seconds() const { return static_cast<double>(Microframes) / 8000.0; }
  /// Delivered frames per second of bus time; 0 before any time has passed.
  [[nodiscard]] double Rate() const;
};

/// One frame as the camera core hands it over. The bytes live until the handler returns.
struct DeliveredFrame {
  std::span<const std::uint8_t> Yuy2;      ///< the picture in the stream's size
  std::span<const std::uint8_t> RawFrame;  ///< header and native pixels that it came from
  std::uint64_t Microframe = 0;            ///< bus time since the stream's start, at delivery
};

using FrameHandler = std::function<void(const DeliveredFrame& frame)>;

/// Packets to frames: raw buffers, assembly and delivery of one stream, for packets from anywhere.
class FramePath {
 public:
  /// @param context  the camera's record, its format and raw frame size set; must outlive the path
  FramePath(CameraContext& context, std::uint32_t rawBufferSize, PictureSize size,
            FrameHandler handler);
  FramePath(const FramePath&) = delete;
  FramePath& operator=(const FramePath&) = delete;

  /// Takes the packets of one transfer in order.
  void Take(std::span<const std::uint8_t> buffer, std::span<const TransferPacket> packets);

  [[nodiscard]] const StreamCounts& Counts() const { return counts_; }

 private:
  void Deliver();

  CameraContext& context_;
  FrameHandler handler_;
  std::vector<std::uint8_t> rawBuffers_;
  std::vector<std::uint8_t> delivered_;
  FrameAssembly assembly_{};
  PublishedFrame published_;
  StreamCounts counts_;
  std::uint32_t firstFrameStart_;
};

/// Whether a raw frame has the size that the sensor's frames have, give or take a few bytes.
[[nodiscard]] bool IsGoodRawFrame(const CameraContext& context, std::uint32_t rawBytes);

/// Nominal frame period of the camera.
inline constexpr std::chrono::microseconds kFramePeriod{33333};

/// What the record has to hold for recorded frames when nobody negotiates.
///
/// @param rawFrameSize  bytes of a raw frame as it was recorded
/// @return bytes of a raw buffer: room for such frames and for all pixels of the raw size
std::uint32_t SetRecordedFormat(CameraContext& context, PictureSize delivered, PictureSize raw,
                                std::uint32_t rawFrameSize);

}  // namespace lidcam::app
