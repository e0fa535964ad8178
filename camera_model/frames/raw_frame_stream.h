#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "bus/faults/frame_faults.h"
#include "camera_model/chips/bridge.h"
#include "camera_model/frames/raw_frame_geometry.h"
#include "camera_model/optics/exposure.h"
#include "camera_model/optics/picture_processing.h"
#include "camera_model/scene/scene.h"

namespace lidcam::camera_model {

/// What one microframe carries.
struct StreamPacket {
  std::span<const std::uint8_t> Bytes;  ///< valid until the next packet; empty in the blanking
  bool HasBusError = false;
  bool IsStalled = false;
};

/// Makes raw frames of the scene and cuts them into one packet per microframe.
///
/// A frame is taken at its first packet, with size and picture settings as the registers stand at that
/// moment, and with the exposure that the sensor has collected up to then (ExposureBanks). Its first
/// packet begins with the marker and its last one is as short as its rest; the microframes to the next
/// frame carry nothing. The bytes depend on seed, registers, scene, light and microframe numbers alone.
class RawFrameStream {
 public:
  RawFrameStream(Bridge& bridge, Scene& scene, std::uint64_t seed);

  /// Drops the frame under way and begins with a new one a little after `microframe`, from which the
  /// light's time counts. The sensor has gone on without a stream, so that what is committed is in
  /// force from the first frame on.
  void Restart(std::uint64_t microframe);

  /// Gives the packet of one microframe. Microframes left out have gone by with their bytes.
  /// @param limit  bytes per microframe of the alternate setting, above 0
  [[nodiscard]] StreamPacket Packet(std::uint64_t microframe, std::uint32_t limit);

  void SetLight(const SceneLight& light) { light_ = light; }
  /// Faults of frames that the stream is to have from here on, in place of those before.
  void SetFaults(const bus::FaultScript& script) { faults_ = bus::FrameFaults(script); }
  [[nodiscard]] bus::FrameFaults& Faults() { return faults_; }
  /// Ends a stall that a fault began.
  void ClearStall() { isStalled_ = false; }

  /// Frames begun since the camera got power.
  [[nodiscard]] std::uint64_t FramesBegun() const { return framesBegun_; }

 private:
  void PassOver(std::uint64_t microframes, std::uint32_t limit);
  void BeginFrame(std::uint64_t microframe, std::uint32_t limit);
  void ExposeLines(const SensorExposure& exposure, double start, std::uint32_t lines);
  void FillHeader(const RawFrameGeometry& geometry, const SensorExposure& exposure);
  void CatchUp(std::uint64_t microframe);
  [[nodiscard]] bool IsFrameUnderWay() const { return offset_ < frame_.size(); }
  [[nodiscard]] std::span<const std::uint8_t> TakeBytes(std::uint32_t limit);
  [[nodiscard]] StreamPacket Interrupt(const bus::BusFault& fault, std::uint32_t limit);
  [[nodiscard]] StreamPacket Disturb(std::uint64_t at, std::span<const std::uint8_t> bytes,
                                     std::uint32_t limit);

  Bridge& bridge_;
  Scene& scene_;
  std::uint64_t seed_;
  SceneLight light_;
  bus::FrameFaults faults_;
  PictureProcessor processor_;
  RgbImage view_;
  std::vector<double> lineExposure_;
  std::vector<std::uint8_t> frame_;
  std::size_t offset_ = 0;
  std::vector<std::uint8_t> disturbed_;
  std::uint64_t lastMicroframe_ = 0;
  std::uint64_t startedAt_ = 0;  ///< microframe of the stream's start
  double nextFrameAt_ = 0;       ///< in microframes
  double period_ = 0;            ///< of the last frame, in microframes
  std::uint64_t framesBegun_ = 0;
  std::uint64_t viewNumber_ = 0;  ///< frames the sensor has taken, sent or not
  std::uint64_t packetOfFrame_ = 0;
  std::uint64_t pausedUntil_ = 0;
  std::uint64_t silentUntil_ = 0;
  bool isStalled_ = false;
};

}  // namespace lidcam::camera_model
