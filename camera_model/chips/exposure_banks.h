#pragma once

#include <cstdint>

namespace lidcam::camera_model {

/// The registers that make up one exposure of VGA0708. They belong together: a picture with the time
/// of one and the gain of another would be wrongly exposed.
struct ExposureRegisters {
  std::uint16_t Lines = 0;       ///< 0x03 and 0x04, 12 bits
  std::uint8_t CoarseGain = 0;   ///< 0x60
  std::uint8_t FineGain = 0;     ///< 0x5D
  std::uint8_t FrameLength = 0;  ///< 0x09

  friend bool operator==(const ExposureRegisters&, const ExposureRegisters&) = default;
};

/// The way of exposure registers from the serial bus to a picture.
///
/// What the bus writes is held back until a commit. At a frame's start the sensor latches what was
/// committed last: with it, it begins to expose the next frame, while it reads out the frame that
/// starts, whose light was collected with what was latched one start before.
class ExposureBanks {
 public:
  /// Puts one set of values in force at once, as power does.
  void Reset(const ExposureRegisters& values) { committed_ = exposing_ = beingRead_ = values; }

  void Commit(const ExposureRegisters& values) { committed_ = values; }

  /// Latches at a frame's start.
  void StartFrame() {
    beingRead_ = exposing_;
    exposing_ = committed_;
  }

  /// Brings what is committed in force throughout, as two frames that nobody sees do.
  void Settle() { exposing_ = beingRead_ = committed_; }

  [[nodiscard]] const ExposureRegisters& Committed() const { return committed_; }
  /// With these values the next frame's light is collected; they set the present frame's length.
  [[nodiscard]] const ExposureRegisters& Exposing() const { return exposing_; }
  /// With these values the light of the frame that is being sent was collected.
  [[nodiscard]] const ExposureRegisters& BeingRead() const { return beingRead_; }

 private:
  ExposureRegisters committed_;
  ExposureRegisters exposing_;
  ExposureRegisters beingRead_;
};

}  // namespace lidcam::camera_model
