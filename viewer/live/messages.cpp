#include "viewer/live/messages.h"

#include "driver/exposure/auto_exposure.h"
#include "library/control_socket/control_rows.h"
#include "library/frames/frame_row.h"
#include "viewer/camera/simulation_panel.h"
#include "viewer/live/register_names.h"

namespace lidcam::viewer {
namespace {

using nlohmann::json;

const char* NameOf(CameraPhase phase) {
  switch (phase) {
    case CameraPhase::Off:
      return "off";
    case CameraPhase::Opening:
      return "opening";
    case CameraPhase::On:
      return "on";
    case CameraPhase::Unplugged:
      return "unplugged";
    case CameraPhase::Failed:
      break;
  }
  return "failed";
}

json ToJson(app::PictureSize size) {
  return {{"width", size.Width}, {"height", size.Height}};
}

// Faults that a person may begin from the page: a name and a script.
json SimulatedFaults() {
  json faults = json::array();
  const auto add = [&faults](const char* name, const char* script) {
    faults.push_back({{"name", name}, {"script", script}});
  };
  add("lose 40 packets", "at 0s lose 40");
  add("lose packets for a second", "at 0s lose 8000");
  add("bus errors", "at 0s error 200");
  add("wrong bits", "at 0s corrupt 100");
  add("short packets", "at 0s short 20");
  add("false frame starts", "at 0s false-start 5");
  add("silence of 300 ms", "at 0s silence 300ms");
  add("reads that fail", "at 0s fail 4");
  add("refused requests", "control 1 stall 5");
  add("a short frame", "frame 2 packet 100 lose 60");
  add("a stalled endpoint", "frame 2 packet 50 stall");
  return faults;
}

json PanelOf(const CameraState& state) {
  json panel = json::object();
  if (state.Simulation) {
    panel["light"] = {{"minimum", SimulationPanel::kLeastLux},
                      {"maximum", SimulationPanel::kMostLux},
                      {"value", state.Simulation->Lux}};
    panel["mains"] = {{"values", {0, 50, 60}}, {"value", state.Simulation->Mains}};
    panel["noise"] = {{"minimum", 0},
                      {"maximum", SimulationPanel::kMostNoise},
                      {"value", state.Simulation->Noise}};
    panel["scene"] = true;
    panel["unplug"] = true;
    panel["faults"] = SimulatedFaults();
  }
  if (state.Length) {
    panel["seconds"] = *state.Length;
    panel["playing"] = state.IsPlaying;
  }
  return panel;
}

}  // namespace

std::string TextOf(const json& message) {
  return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

json ToJson(const std::vector<ControlState>& controls) {
  json rows = json::array();
  for (const ControlState& control : controls) {
    json row = app::ToJson(std::vector{control.Line}).front();
    row.erase("reports");  // the page has the registers from the bus
    row["saved"] = control.Saved;
    rows.push_back(std::move(row));
  }
  return rows;
}

json ToJson(std::size_t camera, const CameraState& state) {
  json sizes = json::array();
  for (const app::PictureSize size : state.Sizes) sizes.push_back(ToJson(size));
  return {{"camera", camera},
          {"unit", state.Unit},
          {"address", state.Address},
          {"description", state.Description},
          {"kind", state.Kind},
          {"sensor", state.Sensor},
          {"state", NameOf(state.Phase)},
          {"error", state.Error},
          {"size", ToJson(state.Size)},
          {"sizes", std::move(sizes)},
          {"controls", ToJson(state.Controls)},
          {"panel", PanelOf(state)}};
}

json ToJson(std::size_t camera, const LoopStep& step) {
  return {{"camera", camera},
          {"time", step.Time},
          {"luminance", step.Luminance},
          {"target", kTargetLuma},
          {"low", kTargetLuma - kDeadBand},
          {"high", kTargetLuma + kDeadBand},
          {"exposure", step.Exposure},
          {"exposureLines", step.Lines},
          {"coarseGain", step.CoarseGain},
          {"fineGain", step.FineGain},
          {"light", std::string(app::LightStateName(step.Light))},
          {"wrote", step.HasWritten}};
}

json ToJson(std::size_t camera, const BusCounts& counts, double time) {
  return {{"camera", camera},
          {"time", time},
          {"packets", counts.Packets},
          {"bytes", counts.Bytes},
          {"errors", counts.Errors},
          {"good", counts.Good},
          {"short", counts.Short},
          {"long", counts.Long},
          {"discarded", counts.Discarded},
          {"reasons", counts.Reasons}};
}

json ToJson(std::size_t camera, const std::vector<RegisterValue>& values, std::string_view sensor) {
  json changed = json::array();
  for (const RegisterValue& value : values) {
    changed.push_back({{"chip", value.Chip == RegisterChip::Bridge ? "bridge" : "sensor"},
                       {"address", value.Address},
                       {"name", std::string(NameOfRegister(value.Chip, value.Address, sensor))},
                       {"value", value.Value},
                       {"time", value.Time}});
  }
  return {{"camera", camera}, {"changed", std::move(changed)}};
}

std::string PictureHeader(std::size_t camera, const Picture& picture, double sent) {
  constexpr int kByteBits = 8;
  const std::string text = TextOf({{"camera", camera},
                                   {"number", picture.Number},
                                   {"time", picture.Seconds},
                                   {"monotonic", picture.Monotonic},
                                   {"sent", sent},
                                   {"drops", picture.Drops},
                                   {"whole", picture.IsWhole},
                                   {"width", picture.Size.Width},
                                   {"height", picture.Size.Height},
                                   {"exposure", picture.Exposure},
                                   {"light", std::string(app::LightStateName(picture.Light))},
                                   {"coarseGain", picture.CoarseGain},
                                   {"fineGain", picture.FineGain}});
  std::string header;
  for (int byte = 0; byte < 4; ++byte) {
    header.push_back(static_cast<char>(text.size() >> (byte * kByteBits) & 0xFF));
  }
  return header + text;
}

double MonotonicMilliseconds() {
  constexpr double kMillisecondsPerSecond = 1e3;
  return MonotonicSeconds() * kMillisecondsPerSecond;
}

}  // namespace lidcam::viewer
