#include "viewer/camera/camera_description.h"

#include "library/camera/source/plugged_camera.h"
#include "library/camera_list.h"
#include "viewer/camera/simulation_panel.h"

namespace lidcam::viewer {
namespace {

constexpr const char* kSimulated = "simulated";

std::string KindOf(const std::string& address) {
  if (app::IsPluggedIn(address)) return "plugged-in";
  return app::CaptureFileOf(address) ? "recording" : kSimulated;
}

std::vector<ControlState> ControlsOf(app::CameraSession& session) {
  std::vector<ControlState> controls;
  session.Use([&](app::OpenedCamera& opened) {
    for (const app::ControlLine& line : app::ReadLines(opened, app::RegisterReports::Left)) {
      controls.push_back({.Line = line, .Saved = line.Value});
    }
  });
  return controls;
}

// The bus's time of all packets of the picture stream.
double LengthOf(const std::string& file) {
  constexpr double kSecondsPerMicroframe = 125e-6;
  const bus::CaptureSource source = app::OpenCapture(file, std::nullopt);
  const auto stream = source.Device().Streams.find(source.StreamEndpoint());
  if (stream == source.Device().Streams.end()) return 0;
  return static_cast<double>(stream->second.Packets) * kSecondsPerMicroframe;
}

}  // namespace

void ReadFacts(app::CameraSession& session, CameraState& state) {
  const app::SessionFacts& facts = session.Facts();
  state.Unit = facts.Unit;
  state.Description = api::DescriptionOf(session.Name(), facts.Vendor, facts.Product);
  state.Sensor = facts.Sensor;
  state.Sizes.clear();
  for (const app::SessionFormat& format : facts.Formats) state.Sizes.push_back(format.Size);
  state.Controls = ControlsOf(session);
}

CameraState StateOf(const std::string& address) {
  CameraState state{.Address = address, .Description = address, .Kind = KindOf(address)};
  if (state.Kind == kSimulated) state.Simulation = SimulationPanel(address).Now();
  if (const auto file = app::CaptureFileOf(address)) state.Length = LengthOf(*file);
  return state;
}

CameraState DescribeCamera(const app::SessionOptions& options) {
  app::CameraSession session(options);
  CameraState state = StateOf(options.Choice.Camera);
  ReadFacts(session, state);
  return state;
}

}  // namespace lidcam::viewer
