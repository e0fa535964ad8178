#include "viewer/camera/simulation_panel.h"

#include <cmath>
#include <stdexcept>
#include <utility>

#include "camera_model/device/camera_options.h"
#include "camera_model/scene/test_card.h"
#include "library/base/command_error.h"

namespace lidcam::viewer {
namespace {

std::unique_ptr<camera_model::Scene> SceneIn(const std::string& file) {
  try {
    return camera_model::OpenSceneFile(file);
  } catch (const std::runtime_error& error) {
    throw app::UsageError(error.what());
  }
}

camera_model::UsbDeviceOptions DeviceOf(const std::string& camera) {
  try {
    return camera_model::ToDeviceOptions(camera_model::ParseCameraOptions(camera));
  } catch (const std::invalid_argument& error) {
    throw app::UsageError(error.what());
  } catch (const std::runtime_error& error) {
    throw app::CommandError(error.what());
  }
}

}  // namespace

/// A scene that is exchanged while the camera looks at it.
class SimulationPanel::View final : public camera_model::Scene {
 public:
  /// Takes the scene that the camera begins with, unless another one was chosen.
  void Begin(std::shared_ptr<camera_model::Scene> scene) {
    const std::lock_guard lock(mutex_);
    first_ = std::move(scene);
    if (!chosen_) now_ = first_;
  }

  void Choose(std::shared_ptr<camera_model::Scene> scene) {
    const std::lock_guard lock(mutex_);
    chosen_ = scene != nullptr;
    now_ = chosen_ ? std::move(scene) : first_;
  }

  void Render(std::uint64_t frame, camera_model::RgbImage& image) override {
    const std::lock_guard lock(mutex_);
    now_->Render(frame, image);
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<camera_model::Scene> first_ = std::make_shared<camera_model::TestCard>();
  std::shared_ptr<camera_model::Scene> now_ = first_;
  bool chosen_ = false;
};

SimulationPanel::SimulationPanel(const std::string& camera) : view_(std::make_shared<View>()) {
  if (!camera.empty()) light_ = DeviceOf(camera).Light;
}

std::unique_ptr<bus::SimulatedBus> SimulationPanel::Open(const std::string& camera) {
  bus::SimulatedBusOptions options{.Camera = DeviceOf(camera), .Pace = bus::Pacing::RealTime};
  const std::lock_guard lock(mutex_);
  if (!options.Camera.View) options.Camera.View = std::make_shared<camera_model::TestCard>();
  view_->Begin(std::exchange(options.Camera.View, view_));
  options.Camera.Light = light_;
  try {
    auto opened = std::make_unique<bus::SimulatedBus>(std::move(options));
    bus_ = opened.get();
    bus_->WithCamera([this](camera_model::UsbDevice& device) { device.Stream().SetNoise(noise_); });
    return opened;
  } catch (const std::invalid_argument& error) {
    throw app::UsageError(error.what());
  }
}

void SimulationPanel::Close() {
  const std::lock_guard lock(mutex_);
  bus_ = nullptr;
}

SimulationState SimulationPanel::Now() const {
  const std::lock_guard lock(mutex_);
  return {
      .Lux = light_.At(0) * camera_model::kRoomLux, .Mains = light_.MainsRate / 2, .Noise = noise_};
}

void SimulationPanel::SetLight(double lux) {
  if (!std::isfinite(lux) || lux < kLeastLux || lux > kMostLux) {
    throw app::UsageError("light of " + std::to_string(lux) + " lx is not from 0.1 to 20000");
  }
  const std::lock_guard lock(mutex_);
  light_.Level = 1;
  light_.Schedule = {{.Seconds = 0, .Lux = lux}};
  Light();
}

void SimulationPanel::SetMains(unsigned rate) {
  if (rate != 0 && rate != 50 && rate != 60) {
    throw app::UsageError("mains of " + std::to_string(rate) + " Hz are not 50, 60, or 0 for none");
  }
  const std::lock_guard lock(mutex_);
  light_.MainsRate = 2 * rate;
  Light();
}

void SimulationPanel::Light() {
  if (bus_ == nullptr) return;
  bus_->WithCamera([this](camera_model::UsbDevice& device) { device.Stream().SetLight(light_); });
}

void SimulationPanel::SetNoise(double factor) {
  if (!std::isfinite(factor) || factor < 0 || factor > kMostNoise) {
    throw app::UsageError("noise of " + std::to_string(factor) + " is not from 0 to 10");
  }
  const std::lock_guard lock(mutex_);
  noise_ = factor;
  if (bus_ == nullptr) return;
  bus_->WithCamera([this](camera_model::UsbDevice& device) { device.Stream().SetNoise(noise_); });
}

void SimulationPanel::SetScene(const std::string& file) {
  std::shared_ptr<camera_model::Scene> scene;
  if (!file.empty()) scene = SceneIn(file);
  const std::lock_guard lock(mutex_);
  view_->Choose(std::move(scene));
}

}  // namespace lidcam::viewer
