#include "library/camera_handle.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "library/camera/controls/sensor_notes.h"

namespace app = lidcam::app;

namespace {

std::uint32_t FlagsOf(const app::SessionControl& control) {
  const bool isSwitch = control.Range.Minimum == 0 && control.Range.Maximum == 1;
  std::uint32_t flags = 0;
  if (isSwitch) flags |= LIDCAM_CONTROL_SWITCH;
  if (!isSwitch && control.Control->IsMenu) flags |= LIDCAM_CONTROL_MENU;
  if (!control.HasEffect) flags |= LIDCAM_CONTROL_NO_EFFECT;
  return flags;
}

}  // namespace

lidcam_camera::lidcam_camera(app::SessionOptions options)
    : Address(options.Choice.Camera),
      Session(std::make_unique<app::CameraSession>(std::move(options))) {
  Describe();
  ListFormats();
  ListControls();
}

void lidcam_camera::Describe() {
  const app::SessionFacts& facts = Session->Facts();
  Entry.Address = Address;
  Entry.Description = lidcam::api::DescriptionOf(Address, facts.Vendor, facts.Product);
  Entry.Unit = facts.Unit;
  Entry.Obstacle = app::StreamObstacleOf(facts.Vendor, facts.Product);
  Entry.Finish(lidcam::api::KindOf(Address), facts.Vendor, facts.Product);
}

void lidcam_camera::ListFormats() {
  for (const app::SessionFormat& format : Session->Facts().Formats) {
    Formats.push_back({.pixels = LIDCAM_PIXELS_YUY2,
                       .width = static_cast<std::uint32_t>(format.Size.Width),
                       .height = static_cast<std::uint32_t>(format.Size.Height),
                       .image_bytes = format.ImageBytes,
                       .intervals = format.Intervals.data(),
                       .interval_count = format.Intervals.size(),
                       .shortest_interval = format.ShortestInterval,
                       .longest_interval = format.LongestInterval});
  }
  std::ranges::stable_sort(
      Formats, [](const lidcam_format& a, const lidcam_format& b) { return a.width > b.width; });
  for (const lidcam_format& format : Formats) FormatList.push_back(&format);
  FormatList.push_back(nullptr);
}

void lidcam_camera::ListControls() {
  const std::vector<app::SessionControl>& controls = Session->Facts().Controls;
  for (const app::SessionControl& control : controls) {
    ControlTexts.emplace_back(control.Control->Name);
    ControlTexts.emplace_back(control.Control->Meaning);
  }
  for (std::size_t i = 0; i < controls.size(); ++i) {
    const app::ControlRange& range = controls[i].Range;
    Controls.push_back({.name = ControlTexts[2 * i].c_str(),
                        .description = ControlTexts[2 * i + 1].c_str(),
                        .minimum = range.Minimum,
                        .maximum = range.Maximum,
                        .step = static_cast<std::int32_t>(range.Step),
                        .default_value = range.Default,
                        .flags = FlagsOf(controls[i])});
  }
  for (const lidcam_control& control : Controls) ControlList.push_back(&control);
  ControlList.push_back(nullptr);
}
