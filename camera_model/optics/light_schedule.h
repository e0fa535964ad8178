#pragma once

#include <string_view>
#include <vector>

namespace lidcam::camera_model {

/// Illuminance of the room for which the power-up exposure is right: a lit office.
inline constexpr double kRoomLux = 300;

/// From this moment on the light has this strength.
struct LightStep {
  double Seconds = 0;  ///< since the stream's start
  double Lux = kRoomLux;

  friend bool operator==(const LightStep&, const LightStep&) = default;
};

/// The light over the time of a stream: sharp steps in ascending time, the first at 0 seconds.
using LightSchedule = std::vector<LightStep>;

/// Reads steps such as "300lx@0s,5lx@4s,300lx@12s".
///
/// Steps are separated by ',' or ';'. A strength is a number from 0 to 100000 with the unit lx; a time
/// is a number with the unit s or ms. The first step may leave out its time, which is 0 s: "300lx"
/// alone is constant light.
/// @throws std::invalid_argument naming the offending part and what would be right
[[nodiscard]] LightSchedule ParseLightSchedule(std::string_view text);

/// Light at one moment, a step's own moment included in it.
/// @return kRoomLux for an empty schedule; the first step's light before the schedule's begin
[[nodiscard]] double LuxAt(const LightSchedule& schedule, double seconds);

}  // namespace lidcam::camera_model
