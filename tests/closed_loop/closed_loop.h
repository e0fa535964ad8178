#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/optics/light_schedule.h"
#include "camera_model/scene/scene.h"
#include "library/frames/frame_row.h"
#include "testbed/transport_testbed.h"

namespace lidcam::app {

/// The driver's platform in a new folder of its own, with the simulated cameras' set files and no
/// settings yet: every control has its default. The folder is removed with the object.
class LoopEnvironment {
 public:
  LoopEnvironment();
  LoopEnvironment(const LoopEnvironment&) = delete;
  LoopEnvironment& operator=(const LoopEnvironment&) = delete;
  ~LoopEnvironment();

 private:
  std::filesystem::path folder_;
};

/// Camera and light of a run.
struct LoopSetup {
  camera_model::LightSchedule Light;         ///< empty: a lit office
  unsigned MainsHertz = 50;                  ///< 50, 60, or 0 for steady light
  std::int32_t Flicker = 1;                  ///< the control: 1 matches 50 Hz, 2 matches 60 Hz
  std::optional<std::int32_t> StartIndex{};  ///< nothing: unchanged
  PictureSize Size{160, 120};
  std::shared_ptr<camera_model::Scene> View{};  ///< null: the test card
};

/// The control value that matches the mains.
[[nodiscard]] inline std::int32_t MatchingFlicker(unsigned hertz) {
  return hertz == 60 ? 2 : 1;
}

/// A simulated camera of the kind whose exposure the host controls, and a stream from it by the
/// driver.
///
/// It has a world of virtual time, on a thread of its own. World and bus halt between the calls
/// of this object.
class ClosedLoop {
 public:
  using PictureHandler = std::function<void(const DeliveredFrame& frame)>;

  /// Starts the stream; throws the errors of the camera or the driver.
  /// @param pictures  receives every delivered frame; may be empty
  explicit ClosedLoop(const LoopSetup& setup, PictureHandler pictures = {});
  ClosedLoop(const ClosedLoop&) = delete;
  ClosedLoop& operator=(const ClosedLoop&) = delete;
  ~ClosedLoop();

  /// Streams until `count` more frames have been delivered.
  void RunFrames(std::size_t count);

  /// All frames so far.
  [[nodiscard]] const std::vector<FrameRow>& Rows() const { return rows_; }

  /// Sets a control by its code. Throws std::runtime_error if the camera refuses.
  void Set(std::uint32_t code, std::int32_t value);

 private:
  using Work = std::function<void(testbed::TransportTestbed& camera)>;

  void Live();
  void Serve(testbed::TransportTestbed& camera);
  /// Runs work on the loop's thread, and rethrows its exceptions.
  void Ask(Work work);
  void WaitForAnswer(std::unique_lock<std::mutex>& lock);
  void Take(const testbed::HostedFrame& frame);

  const LoopSetup setup_;
  const PictureHandler pictures_;
  bus::SimulatedBus bus_;
  ExposureEventCounter events_;
  std::vector<FrameRow> rows_;

  std::mutex mutex_;  ///< guards the members below
  std::condition_variable turn_;
  Work work_;
  bool isAsked_ = true;  ///< at first, for the start
  std::exception_ptr error_;
  std::thread thread_;
};

}  // namespace lidcam::app
