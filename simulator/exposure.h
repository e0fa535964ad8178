#pragma once

#include <cstdint>

#include "simulator/bridge.h"

namespace lidcam::simulator {

/// The light in front of the camera.
struct SceneLight {
  double Level = 1.0;  ///< 1.0 is the room for which the power-up exposure is right
  /// Rate at which the light swells, twice the mains frequency: 100, 120, or 0 for steady light.
  unsigned MainsRate = 0;

  friend bool operator==(const SceneLight&, const SceneLight&) = default;
};

/// What the sensor makes of the light with the registers that stand in it.
struct SensorExposure {
  /// Light collected and amplified, 1.0 for a well exposed picture of the scene.
  double Relative = 1.0;
  double Seconds = 0.03;           ///< time for which each line collects light
  double LineSeconds = 0.0000573;  ///< from one line's start to the next one's
  double Gain = 1.0;               ///< amplification, against that of the power-up registers
  /// Exposure time in half cycles of 50 Hz light, 1 to 20: the level that a raw frame's header tells.
  std::uint8_t Level = 3;
  bool IsAutomatic = true;  ///< the chip chose the exposure by itself
};

/// Works out the exposure from the registers of bridge and sensor.
///
/// With the chip's automatic exposure on, the picture stays well exposed as far as the longest time
/// and the highest gain reach. With it off, time and gain are those in the sensor's registers.
[[nodiscard]] SensorExposure ReadExposure(const Bridge& bridge, const SceneLight& light);

/// Time from one frame's start to the next one's as the sensor's clock gives it. An exposure longer
/// than that stretches the frame.
[[nodiscard]] double FrameSeconds(const Bridge& bridge, const SensorExposure& exposure);

/// Factor by which mains light makes one line brighter or darker than the mean.
/// @param lineStart  seconds since the light was switched on at which the line begins to collect
[[nodiscard]] double MainsFactor(const SceneLight& light, const SensorExposure& exposure,
                                 double lineStart);

}  // namespace lidcam::simulator
