#pragma once

#include <cstdint>

#include "camera_model/chips/bridge.h"
#include "camera_model/chips/exposure_banks.h"
#include "camera_model/optics/light_schedule.h"
#include "camera_model/optics/pixel_noise.h"

namespace lidcam::camera_model {

/// The light in front of the camera.
struct SceneLight {
  /// Factor on all light: 1.0 with a schedule of kRoomLux, or without one, is the room in which the
  /// power-up exposure is correct.
  double Level = 1.0;
  /// Frequency of the light's modulation, twice the mains frequency: 100, 120, or 0 for steady
  /// light.
  unsigned MainsRate = 0;
  /// Strength over time, counted from the stream's start; empty: constantly kRoomLux.
  LightSchedule Schedule{};

  /// Strength at a time of the stream, 1.0 for the usual room.
  [[nodiscard]] double At(double seconds) const {
    return Level * LuxAt(Schedule, seconds) / kRoomLux;
  }

  friend bool operator==(const SceneLight&, const SceneLight&) = default;
};

/// The exposure that the sensor's registers give in a light.
struct SensorExposure {
  /// Light collected and amplified in steady light, 1.0 for a well exposed picture of the scene.
  double Relative = 1.0;
  double Sensitivity = 1.0;        ///< Relative for light of strength 1.0
  double Seconds = 0.03;           ///< time for which each line collects light
  double LineSeconds = 0.0000573;  ///< from one line's start to the next one's
  double Gain = 1.0;               ///< amplification relative to the power-up registers
  unsigned ExtraLines = 0;         ///< lines that the frame length register adds to each frame
  /// Exposure time in half cycles of 50 Hz light, 1 to 20: the level in a raw frame's header.
  std::uint8_t Level = 3;
  bool IsAutomatic = true;  ///< the bridge's automatic exposure is on
};

/// Computes an exposure from the registers of bridge and sensor.
///
/// With the chip's automatic exposure on, the picture stays well exposed as far as the longest time
/// and the highest gain reach. With it off, time and gain are those in the sensor's registers.
/// @param registers  the exposure registers of VGA0708; other sensors' are read from the sensor
/// @param strength   light in front of the camera, 1.0 for the usual room
[[nodiscard]] SensorExposure ExposureWith(const ExposureRegisters& registers, const Bridge& bridge,
                                          double strength);

/// The exposure of the committed registers in the light of a stream's start.
[[nodiscard]] SensorExposure ReadExposure(const Bridge& bridge, const SceneLight& light);

/// Time from one frame's start to the next one's. An exposure longer than the frame stretches the
/// frame.
[[nodiscard]] double FrameSeconds(const Bridge& bridge, const SensorExposure& exposure);

/// Mean strength of the light, with its modulation, while a line collects it.
/// @param from     seconds since the stream's start at which the line begins to collect
/// @param seconds  duration; 0 gives the light of one moment
[[nodiscard]] double MeanLight(const SceneLight& light, double from, double seconds);

/// @return true if the light is constant between the two times
[[nodiscard]] bool IsSteady(const SceneLight& light, double from, double to);

/// Noise of the sensor's pixels for an exposure.
[[nodiscard]] PixelNoise NoiseOf(const SensorExposure& exposure);

}  // namespace lidcam::camera_model
