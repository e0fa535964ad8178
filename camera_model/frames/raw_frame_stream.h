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

/// The contents of one microframe.
struct StreamPacket {
  std::span<const std::uint8_t> Bytes;  ///< valid until the next packet; empty in the blanking
  bool HasBusError = false;
  bool IsStalled = false;
};

/// Makes raw frames of the scene and divides them into one packet per microframe.
///
/// A frame is rendered at its first packet, with the size and picture settings in the registers at
/// that moment, and with the exposure that the sensor has collected by then (ExposureBanks). Its
/// first packet begins with the marker and its last one is as short as its rest; the microframes
/// until the next frame are empty. The bytes depend only on seed, registers, scene, light and
/// microframe numbers.
class RawFrameStream {
 public:
  RawFrameStream(Bridge& bridge, Scene& scene, std::uint64_t seed);

  /// Drops the frame in progress and begins a new one a little after `microframe`, from which the
  /// light's time counts. The sensor has continued without a stream, so that the committed exposure
  /// is in effect from the first frame on.
  void Restart(std::uint64_t microframe);

  /// Returns the packet of one microframe. The bytes of skipped microframes are lost.
  /// @param limit  bytes per microframe of the alternate setting, above 0
  [[nodiscard]] StreamPacket Packet(std::uint64_t microframe, std::uint32_t limit);

  void SetLight(const SceneLight& light) { light_ = light; }
  /// Multiplies the deviations of the pixels' noise: 1 is the sensor's own, 0 none.
  void SetNoise(double factor) { noise_ = factor; }
  /// Sets the faults of frames, in place of the previous ones.
  void SetFaults(const bus::FaultScript& script) { faults_ = bus::FrameFaults(script); }
  [[nodiscard]] bus::FrameFaults& Faults() { return faults_; }
  /// Ends a stall caused by a fault.
  void ClearStall() { isStalled_ = false; }

  /// Frames begun since power-up.
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
  double noise_ = 1;
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
  std::uint64_t viewNumber_ = 0;  ///< frames rendered, sent or not
  std::uint64_t packetOfFrame_ = 0;
  std::uint64_t pausedUntil_ = 0;
  std::uint64_t silentUntil_ = 0;
  bool isStalled_ = false;
};

}  // namespace lidcam::camera_model
