#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "base/time_units.h"
#include "driver/core/record/camera_context.h"
#include "driver/frame/assembly/frame_assembly.h"
#include "library/base/units.h"
#include "library/settings/stream_size.h"

namespace lidcam::app {

/// What the camera had sent of its frames at some moment.
struct SentFrames {
  std::uint64_t Ended = 0;     ///< frames whose end was seen on the bus
  std::uint64_t Settling = 0;  ///< of those, thrown away while the camera took over other registers

  friend bool operator==(const SentFrames&, const SentFrames&) = default;
};

/// What became of a stream's frames so far.
struct StreamCounts {
  std::uint64_t Good = 0;      ///< delivered with the size that the sensor's frames have
  std::uint64_t Bad = 0;       ///< delivered with another size
  std::uint64_t StartUp = 0;   ///< sent ahead of the first delivered frame
  std::uint64_t Settling = 0;  ///< sent after it, and dropped (see SentFrames)
  std::uint64_t Lost = 0;      ///< sent behind it, and not delivered for any other reason

  std::uint64_t BusBytes = 0;     ///< bytes of all packets
  std::uint64_t Microframes = 0;  ///< bus time since the stream's start

  std::uint64_t FirstMicroframe = 0;   ///< bus time at which the first frame was delivered
  std::uint64_t NewestMicroframe = 0;  ///< and the newest one
  SentFrames SentAtFirst{};            ///< up to the first delivered frame, which is among them

  /// Counts a delivered frame.
  ///
  /// @param sent        up to this frame, which is among them
  /// @param microframe  bus time since the stream's start
  void Deliver(bool isGood, const SentFrames& sent, std::uint64_t microframe);

  [[nodiscard]] std::uint64_t Delivered() const { return Good + Bad; }
  [[nodiscard]] double Seconds() const { return base::SecondsOfMicroframes(Microframes); }
  /// Frames a second of bus time, from the first delivered frame to the newest one; nothing before the
  /// second.
  [[nodiscard]] std::optional<double> Rate() const;
};

/// One frame as the camera core hands it over. The bytes live until the handler returns.
struct DeliveredFrame {
  std::span<const std::uint8_t> Yuy2;      ///< the picture in the stream's size
  std::span<const std::uint8_t> RawFrame;  ///< header and native pixels that it came from
  std::uint64_t Microframe = 0;            ///< bus time since the stream's start, at delivery
};

using FrameHandler = std::function<void(const DeliveredFrame& frame)>;

/// Packets to frames: raw buffers, assembly and delivery of one stream, for packets from anywhere.
class ReplayPipeline {
 public:
  /// @param context  the camera's record, its format and raw frame size set; must outlive the path
  ReplayPipeline(CameraContext& context, std::uint32_t rawBufferSize, PictureSize size,
                 FrameHandler handler);
  ReplayPipeline(const ReplayPipeline&) = delete;
  ReplayPipeline& operator=(const ReplayPipeline&) = delete;

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

/// Sets the record's fields for recorded frames, without a format negotiation.
///
/// @param rawFrameSize  bytes of a raw frame as it was recorded
/// @return bytes of a raw buffer: room for such frames and for all pixels of the raw size
std::uint32_t SetRecordedFormat(CameraContext& context, PictureSize delivered, PictureSize raw,
                                std::uint32_t rawFrameSize);

}  // namespace lidcam::app
