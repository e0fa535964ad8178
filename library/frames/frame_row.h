#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "driver/core/record/camera_context.h"
#include "library/frames/replay_pipeline.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {

/// What the exposure control of one frame did on the bus.
struct ExposureEvents {
  std::uint32_t Steps = 0;    ///< operating points written to the sensor: 0 or 1
  std::uint32_t Commits = 0;  ///< writes of 0x83 to sensor register 0xFF2F
  std::uint32_t Refused = 0;  ///< register accesses that met the application on the bus

  friend bool operator==(const ExposureEvents&, const ExposureEvents&) = default;
};

/// One delivered frame and the exposure loop as it stood behind that frame's exposure control.
struct FrameRow {
  std::uint64_t Frame = 0;       ///< delivered frames from 1 on
  double Seconds = 0;            ///< bus time since the stream's start, at delivery
  std::uint32_t Luma = 0;        ///< average luminance that the camera reported, 0 to 255
  std::uint32_t Level = 0;       ///< exposure level that the camera reported
  std::int32_t Index = 0;        ///< row of the exposure table
  std::uint32_t Exposure = 0;    ///< flicker periods; 0 until the loop's first step
  std::uint32_t CoarseGain = 0;  ///< as sensor register 0xFF60 holds it
  std::uint32_t FineGain = 0;    ///< as sensor register 0xFF5D holds it
  std::uint32_t Lines = 0;       ///< exposure in sensor lines
  std::uint32_t State = LightStateInitial;  ///< a lidcam::LightState
  std::uint32_t Mode = 0;                   ///< the light state machine's result
  ExposureEvents Events{};
  std::optional<double> Lux{};       ///< light on the scene at delivery; simulated cameras only
  std::optional<double> LuxSince{};  ///< bus time at which that light began

  friend bool operator==(const FrameRow&, const FrameRow&) = default;
};

/// Counts in the trace what each frame's exposure control does.
class ExposureEventCounter {
 public:
  /// @param camera  whose lines count; null: those of all cameras
  explicit ExposureEventCounter(const CameraContext* camera = nullptr);

  /// What happened since the newest frame ended on the bus, which is the work on that frame.
  [[nodiscard]] const ExposureEvents& OfNewestFrame() const { return events_; }

 private:
  void See(std::string_view line);

  ExposureEvents events_;
  TraceObserver observer_;
};

/// "Normal", "LowLight", "Initial", "Dummy".
[[nodiscard]] std::string_view LightStateName(std::uint32_t state);
/// "Normal", "LowLight", "Dummy".
[[nodiscard]] std::string_view LightModeName(std::uint32_t mode);
/// The opposite ways; nothing for a name that there is not.
[[nodiscard]] std::optional<std::uint32_t> LightStateOf(std::string_view name);
[[nodiscard]] std::optional<std::uint32_t> LightModeOf(std::string_view name);

/// Reads the loop's state at the end of a frame's delivery. The frame's number and the light are the
/// log's to add.
[[nodiscard]] FrameRow ReadFrameRow(const CameraContext& context, const DeliveredFrame& delivered,
                                    const ExposureEvents& events);

}  // namespace lidcam::app
