#include "viewer/live/messages.h"

#include <ctime>

#include "library/control_socket/control_rows.h"
#include "library/frames/frame_row.h"

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

}  // namespace

std::string TextOf(const json& message) {
  return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

json ToJson(const std::vector<ControlState>& controls) {
  json rows = json::array();
  for (const ControlState& control : controls) {
    json row = app::ToJson(std::vector{control.Line}).front();
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
          {"panel", json::object()}};
}

std::string PictureHeader(std::size_t camera, const Picture& picture, double sent) {
  constexpr int kByteBits = 8;
  const std::string text = TextOf({{"camera", camera},
                                   {"number", picture.Number},
                                   {"time", picture.Seconds},
                                   {"monotonic", picture.Monotonic},
                                   {"sent", sent},
                                   {"drops", picture.Drops},
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
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace lidcam::viewer
