#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/optics/exposure.h"
#include "camera_model/scene/scene.h"
#include "viewer/camera/camera_state.h"

namespace lidcam::viewer {

/// What a simulated camera looks at, as it is changed while it runs. It keeps its state over an unplugging. Any thread.
class SimulationPanel {
 public:
  /// @param camera  "sim:1af0:0511,seed=2"; empty for a camera that is not simulated. Throws UsageError.
  explicit SimulationPanel(const std::string& camera);
  SimulationPanel(const SimulationPanel&) = delete;
  SimulationPanel& operator=(const SimulationPanel&) = delete;
  ~SimulationPanel() = default;

  /// Makes the bus of a simulated camera that is under this panel from now on, in real time. Throws UsageError and
  /// CommandError.
  ///
  /// @param camera  "sim:1af0:0511,seed=2"
  [[nodiscard]] std::unique_ptr<bus::SimulatedBus> Open(const std::string& camera);
  /// The bus is gone.
  void Close();

  [[nodiscard]] SimulationState Now() const;

  static constexpr double kLeastLux = 0.1;
  static constexpr double kMostLux = 20000;
  static constexpr double kMostNoise = 10;

  // Each throws UsageError for a value that there is not.

  void SetLight(double lux);
  /// @param rate  0, 50 or 60
  void SetMains(unsigned rate);
  /// @param factor  of the deviations of the sensor's own noise
  void SetNoise(double factor);
  /// @param file  a picture or a video, as scene=FILE takes it; empty: the scene that the camera began with
  void SetScene(const std::string& file);

 private:
  class View;

  void Light();

  mutable std::mutex mutex_;
  bus::SimulatedBus* bus_ = nullptr;
  std::shared_ptr<View> view_;
  camera_model::SceneLight light_;
  double noise_ = 1;
};

}  // namespace lidcam::viewer
