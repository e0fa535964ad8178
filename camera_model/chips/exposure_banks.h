#pragma once

#include <cstdint>

namespace lidcam::camera_model {

/// The registers of one exposure of VGA0708. They are applied together: a picture with the time of
/// one and the gain of another would be wrongly exposed.
struct ExposureRegisters {
  std::uint16_t Lines = 0;       ///< 0x03 and 0x04, 12 bits
  std::uint8_t CoarseGain = 0;   ///< 0x60
  std::uint8_t FineGain = 0;     ///< 0x5D
  std::uint8_t FrameLength = 0;  ///< 0x09

  friend bool operator==(const ExposureRegisters&, const ExposureRegisters&) = default;
};

/// The stages of exposure registers between the serial bus and a picture.
///
/// Values written on the bus are held back until a commit. At a frame's start the sensor latches
/// the last committed values: they expose the next frame, while the sensor reads out the frame that
/// starts, whose light was collected with the values latched one start before.
class ExposureBanks {
 public:
  /// Applies one set of values at once, as at power-up.
  void Reset(const ExposureRegisters& values) { committed_ = exposing_ = beingRead_ = values; }

  void Commit(const ExposureRegisters& values) { committed_ = values; }

  /// Latches at a frame's start.
  void StartFrame() {
    beingRead_ = exposing_;
    exposing_ = committed_;
  }

  /// Applies the committed values to both stages, as two frames without a reader do.
  void Settle() { exposing_ = beingRead_ = committed_; }

  [[nodiscard]] const ExposureRegisters& Committed() const { return committed_; }
  /// The values that expose the next frame; they determine the present frame's length.
  [[nodiscard]] const ExposureRegisters& Exposing() const { return exposing_; }
  /// The values that exposed the frame that is being sent.
  [[nodiscard]] const ExposureRegisters& BeingRead() const { return beingRead_; }

 private:
  ExposureRegisters committed_;
  ExposureRegisters exposing_;
  ExposureRegisters beingRead_;
};

}  // namespace lidcam::camera_model
