#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "apps/lidcam/core_camera.h"
#include "apps/lidcam/units.h"
#include "driver/frame/frame_assembly.h"

namespace lidcam::app {

/// What became of a stream's frames so far.
struct StreamCounts {
  std::uint64_t Good = 0;         ///< delivered with the size that the sensor's frames have
  std::uint64_t Bad = 0;          ///< delivered with another size
  std::uint64_t Dropped = 0;      ///< begun on the bus and not delivered
  std::uint64_t BusBytes = 0;     ///< bytes of all packets
  std::uint64_t Microframes = 0;  ///< bus time since the stream's start

  [[nodiscard]] std::uint64_t Delivered() const { return Good + Bad; }
  [[nodiscard]] double Seconds() const { return static_cast<double>(Microframes) / 8000.0; }
  /// Delivered frames per second of bus time; 0 before any time has passed.
  [[nodiscard]] double Rate() const;
};

/// Takes one delivered frame in YUY2 order; the bytes live until it returns.
using FrameHandler = std::function<void(std::span<const std::uint8_t> yuy2)>;

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
  PictureSize size_;
  FrameHandler handler_;
  std::vector<std::uint8_t> rawBuffers_;
  std::vector<std::uint8_t> delivered_;
  FrameAssembly assembly_{};
  PublishedFrame published_;
  StreamCounts counts_;
  std::uint32_t firstFrameStart_;
};

/// A stream at one of the sizes that the hardware sends itself, from the core over the bus.
class NativeStream {
 public:
  /// Negotiates the format, obtains an alternate setting that carries the size, and programs the
  /// camera. Throws CommandError if there is none.
  ///
  /// @param camera  must outlive the stream
  NativeStream(CoreCamera& camera, PictureSize size, FrameHandler handler);
  NativeStream(const NativeStream&) = delete;
  NativeStream& operator=(const NativeStream&) = delete;
  /// Ends the stream: sensor down, alternate setting 0, settings saved.
  ~NativeStream();

  /// Reads one transfer from the bus and takes its packets. False when a recorded bus has no more.
  /// Throws CommandError if the bus fails.
  bool ReadTransfer();

  [[nodiscard]] const StreamCounts& Counts() const { return path_->Counts(); }
  [[nodiscard]] std::uint8_t AlternateSetting() const { return setting_.Setting; }
  [[nodiscard]] PictureSize Size() const { return size_; }

 private:
  NativeStream(CoreCamera& camera, PictureSize size);
  void SelectSetting();

  CoreCamera& camera_;
  PictureSize size_;
  FormatRequest request_{};
  std::uint32_t rawBufferSize_ = 0;
  bus::AlternateSetting setting_;
  std::unique_ptr<FramePath> path_;
  std::vector<std::uint8_t> buffer_;
  std::vector<bus::IsochronousPacket> packets_;
  std::vector<TransferPacket> transferPackets_;
};

/// The sizes that the hardware sends itself, widest first.
inline constexpr PictureSize kNativeSizes[] = {{640, 480}, {320, 240}, {160, 120}};

/// Nominal frame period of the camera.
inline constexpr std::chrono::microseconds kFramePeriod{33333};

/// Throws UsageError unless the hardware sends the size itself.
void RequireNativeSize(PictureSize size);

/// What the record's RawSizeMode holds for a native size.
[[nodiscard]] std::uint32_t RawSizeModeOf(PictureSize size);

/// What the record has to hold for frames of a native size when nobody negotiates.
void SetNativeFormat(CameraContext& context, PictureSize size, std::uint32_t rawFrameSize);

}  // namespace lidcam::app
