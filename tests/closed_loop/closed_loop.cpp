#include "tests/closed_loop/closed_loop.h"

#include <stdlib.h>

#include <stdexcept>
#include <utility>

#include "apps/lidcam/settings/host_environment.h"
#include "driver/core/control/control_codes.h"
#include "driver/exposure/auto_exposure.h"
#include "platform/host/nt/registry/registry.h"

namespace lidcam::app {
namespace {

bus::SimulatedBusOptions BusFor(const LoopSetup& setup) {
  bus::SimulatedBusOptions options;
  options.Camera.Light.MainsRate = 2 * setup.MainsHertz;
  options.Camera.Light.Schedule = setup.Light;
  options.Camera.View = setup.View;
  return options;
}

}  // namespace

LoopEnvironment::LoopEnvironment() {
  std::string name = (std::filesystem::temp_directory_path() / "lidcam-loop-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name;
  setenv("LIDCAM_HOME", folder_.c_str(), 1);
  OpenHostEnvironment({}, SetFiles::OfSimulatedCameras);
}

LoopEnvironment::~LoopEnvironment() {
  static_cast<void>(host::CloseRegistry());
  unsetenv("LIDCAM_HOME");
  std::filesystem::remove_all(folder_);
}

ClosedLoop::ClosedLoop(const LoopSetup& setup, PictureHandler pictures)
    : setup_(setup), pictures_(std::move(pictures)), bus_(BusFor(setup)), camera_(bus_) {
  constexpr std::uint32_t kFlicker = 40;
  Set(kFlicker, setup.Flicker);
  if (setup.StartIndex) AeIndex = *setup.StartIndex;
  stream_ = std::make_unique<NativeStream>(camera_,
                                           StreamSize{.Delivered = setup.Size, .Raw = setup.Size},
                                           [this](const DeliveredFrame& frame) { Take(frame); });
}

void ClosedLoop::Take(const DeliveredFrame& frame) {
  FrameRow row = ReadFrameRow(camera_.Context(), frame, events_.OfNewestFrame());
  row.Frame = rows_.size() + 1;
  row.Lux = camera_model::LuxAt(setup_.Light, row.Seconds);
  rows_.push_back(row);
  if (pictures_) pictures_(frame);
}

void ClosedLoop::Set(std::uint32_t code, std::int32_t value) {
  ControlRecord record{};
  record.Code = code;
  record.Value = value;
  if (SetControl(camera_.Context(), record) == 0) return;
  throw std::runtime_error("the camera refuses control code " + std::to_string(code));
}

void ClosedLoop::RunFrames(std::size_t count) {
  const std::size_t wanted = rows_.size() + count;
  while (rows_.size() < wanted) stream_->ReadTransfer();
}

}  // namespace lidcam::app
