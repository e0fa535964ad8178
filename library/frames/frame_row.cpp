#include "library/frames/frame_row.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/time_units.h"
#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"
#include "driver/frame/raw/raw_frame_parser.h"

namespace lidcam::app {
namespace {

// In the order of their numbers, which differ between states and modes.
constexpr std::array<std::string_view, 4> kStateNames = {"Normal", "LowLight", "Initial", "Dummy"};
constexpr std::array<std::string_view, 3> kModeNames = {"Normal", "LowLight", "Dummy"};

std::string_view NameIn(std::span<const std::string_view> names, std::uint32_t number) {
  return number < names.size() ? names[number] : "unknown";
}

std::optional<std::uint32_t> NumberIn(std::span<const std::string_view> names,
                                      std::string_view name) {
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) return std::nullopt;
  return static_cast<std::uint32_t>(found - names.begin());
}

// A frame that was cut short within its header has no statistics.
std::uint32_t HeaderByte(std::span<const std::uint8_t> rawFrame, std::size_t offset) {
  return offset < rawFrame.size() ? rawFrame[offset] : 0;
}

}  // namespace

ExposureEventCounter::ExposureEventCounter(const CameraContext* camera)
    : observer_([this, camera](const CameraContext* its, std::string_view line) {
        if (camera == nullptr || its == camera) See(line);
      }) {}

void ExposureEventCounter::See(std::string_view line) {
  if (line.starts_with("frame ")) {
    events_ = {};
  } else if (line.starts_with("exposure index=")) {
    ++events_.Steps;
  } else if (line == "bus  write sensor FF2F=83") {
    ++events_.Commits;
  } else if (line.starts_with("bus  ") && line.ends_with(" refused")) {
    ++events_.Refused;
  }
}

std::string_view LightStateName(std::uint32_t state) {
  return NameIn(kStateNames, state);
}

std::string_view LightModeName(std::uint32_t mode) {
  return NameIn(kModeNames, mode);
}

std::optional<std::uint32_t> LightStateOf(std::string_view name) {
  return NumberIn(kStateNames, name);
}

std::optional<std::uint32_t> LightModeOf(std::string_view name) {
  return NumberIn(kModeNames, name);
}

FrameRow ReadFrameRow(const CameraContext& context, const DeliveredFrame& delivered,
                      const ExposureEvents& events) {
  FrameRow row;
  row.Seconds = base::SecondsOfMicroframes(delivered.Microframe);
  row.Luma = HeaderByte(delivered.RawFrame, kRawFrameLumaOffset);
  row.Level = HeaderByte(delivered.RawFrame, kRawFrameLevelOffset);
  row.Index = AeIndex;
  row.Exposure = AeOutput.Exposure;
  row.CoarseGain = AeOutput.CoarseGain;
  row.FineGain = AeOutput.FineGain;
  row.Lines = AppliedExposureLines;
  row.State = context.LightState;
  row.Mode = LightMode;
  row.Events = events;
  return row;
}

}  // namespace lidcam::app
