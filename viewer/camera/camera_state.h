#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "library/base/units.h"
#include "library/camera/controls/control_lines.h"

namespace lidcam::viewer {

/// What a camera is doing.
enum class CameraPhase : std::uint8_t { Off, Opening, On, Unplugged, Failed };

/// A control as a page shows it.
struct ControlState {
  app::ControlLine Line;
  std::int32_t Saved = 0;  ///< in the user's settings
};

/// What a simulated camera looks at.
struct SimulationState {
  double Lux = 0;
  unsigned Mains = 0;  ///< Hz; 0: steady light
  double Noise = 1;    ///< factor on the sensor's own
};

/// What is known of a camera, as a value that threads pass to each other.
struct CameraState {
  std::string Address;  ///< as the user named it
  std::string Unit{};   ///< empty until the camera was open once, and for a recording
  std::string Description{};
  std::string Kind{};  ///< "plugged-in", "simulated" or "recording"
  std::string Sensor{};
  CameraPhase Phase = CameraPhase::Off;
  std::string Error{};  ///< why it is not on
  app::PictureSize Size{640, 480};
  std::vector<app::PictureSize> Sizes{};
  std::vector<ControlState> Controls{};
  std::optional<SimulationState> Simulation{};
  std::optional<double> Length{};  ///< seconds, of a recording
  bool IsPlaying = true;           ///< of a recording
};

/// A picture, and what the camera's driver knew when it was delivered.
struct Picture {
  std::vector<std::uint8_t> Yuy2;
  app::PictureSize Size{};
  /// Of the camera's pictures, from 1 on, also over the ends of streams: the driver's own numbers are places on the
  /// stream's time, and two pictures may have the same one.
  std::int64_t Number = 0;
  std::int64_t Drops = 0;  ///< frames of the stream that were not delivered
  /// Otherwise bytes were lost on the bus, and the end of the picture is that of an older frame.
  bool IsWhole = true;
  double Seconds = 0;    ///< of the stream
  double Monotonic = 0;  ///< ms of CLOCK_MONOTONIC at the frame's end on the bus; 0 for a recording
  std::uint32_t Exposure = 0;  ///< flicker periods
  std::uint32_t CoarseGain = 0;
  std::uint32_t FineGain = 0;
  std::uint32_t Light = 0;  ///< a lidcam::LightState
};

}  // namespace lidcam::viewer
