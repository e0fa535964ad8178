#pragma once

#include <string_view>
#include <vector>

namespace lidcam::camera_model {

/// Illuminance of the room in which the power-up exposure is correct: a lit office.
inline constexpr double kRoomLux = 300;

/// The strength of the light from a time on.
struct LightStep {
  double Seconds = 0;  ///< since the stream's start
  double Lux = kRoomLux;

  friend bool operator==(const LightStep&, const LightStep&) = default;
};

/// The light during a stream: steps in ascending time, the first at 0 seconds.
using LightSchedule = std::vector<LightStep>;

/// Reads steps such as "300lx@0s,5lx@4s,300lx@12s".
///
/// Steps are separated by ',' or ';'. A strength is a number from 0 to 100000 with the unit lx; a time
/// is a number with the unit s or ms. The first step may leave out its time, which is 0 s: "300lx"
/// alone is constant light.
/// @throws std::invalid_argument naming the invalid part and the expected form
[[nodiscard]] LightSchedule ParseLightSchedule(std::string_view text);

/// Light at a time; a step's own time belongs to the step.
/// @return kRoomLux for an empty schedule; before the first step, that step's light
[[nodiscard]] double LuxAt(const LightSchedule& schedule, double seconds);

}  // namespace lidcam::camera_model
