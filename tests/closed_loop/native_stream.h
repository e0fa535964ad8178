#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "apps/lidcam/camera/core_camera.h"
#include "apps/lidcam/frames/replay_pipeline.h"
#include "apps/lidcam/settings/stream_size.h"

namespace lidcam::app {

/// A stream from the core over the bus, in any of the driver's sizes: no transport, no threads and no
/// time but the bus's own, for runs of many thousand frames.
class NativeStream {
 public:
  /// Negotiates the format, obtains the widest alternate setting that the bus has room for and that
  /// gives the raw size, and programs the camera. Throws CommandError if there is none.
  ///
  /// @param camera  must outlive the stream
  NativeStream(CoreCamera& camera, const StreamSize& size, FrameHandler handler);
  NativeStream(const NativeStream&) = delete;
  NativeStream& operator=(const NativeStream&) = delete;
  /// Ends the stream: sensor down, alternate setting 0, settings saved.
  ~NativeStream();

  /// Reads one transfer from the bus and takes its packets. False when a recorded bus has no more.
  /// Throws CommandError if the bus fails.
  bool ReadTransfer();

  [[nodiscard]] const StreamCounts& Counts() const { return path_->Counts(); }
  [[nodiscard]] std::uint8_t AlternateSetting() const { return setting_.Setting; }
  /// What the camera sends, whatever is delivered.
  [[nodiscard]] PictureSize RawSize() const { return rawSize_; }

 private:
  NativeStream(CoreCamera& camera, const StreamSize& size);
  void SelectSetting(const StreamSize& size);

  CoreCamera& camera_;
  PictureSize rawSize_;
  FormatRequest request_{};
  std::uint32_t rawBufferSize_ = 0;
  bus::AlternateSetting setting_;
  std::unique_ptr<ReplayPipeline> path_;
  std::vector<std::uint8_t> buffer_;
  std::vector<bus::IsochronousPacket> packets_;
  std::vector<TransferPacket> transferPackets_;
};

}  // namespace lidcam::app
