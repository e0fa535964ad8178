#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cstring>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bus/usb_bus.h"
#include "camera_model/device/camera_options.h"
#include "platform/host/client/camera.h"
#include "platform/host/client/stream.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "testbed/installed_testbed.h"

namespace lidcam::compliance {

inline bool IsSame(const GUID& one, const GUID& other) {
  return std::memcmp(&one, &other, sizeof(GUID)) == 0;
}

inline constexpr LONGLONG kMillisecond = 10'000;  // 100 ns
inline constexpr LONGLONG kSecond = 1000 * kMillisecond;
/// Longest wait for a frame of a running camera, also with faults.
inline constexpr LONGLONG kFrameWait = 3 * kSecond;

/// The kind of device behind the driver.
enum class CameraKind {
  Simulated,
  Recorded,   ///< the scenario is recorded from the simulated camera first, then replayed
  Disturbed,  ///< the simulated camera on a bus with mild faults
};

[[nodiscard]] std::string NameOf(CameraKind kind);

/// A host on which the camera is installed and started.
class Host {
 public:
  explicit Host(bus::UsbBus& bus) : bus_(bus) { PlugIn(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  [[nodiscard]] testbed::InstalledTestbed& Installed() { return *installed_; }
  [[nodiscard]] client::Camera Open() const {
    return client::Camera::Open(installed_->TopDevice());
  }

  /// Removes the camera in order and plugs it into the same port again. Files must be closed.
  void Replug();

  /// Removes the camera and the driver; expects that nothing is left of them.
  void Close();

 private:
  void PlugIn();

  bus::UsbBus& bus_;
  std::unique_ptr<testbed::InstalledTestbed> installed_;
};

struct ScenarioOptions {
  camera_model::CameraOptions Camera{};
  std::uint64_t Seed = 1;
};

using Scenario = std::function<void(Host&)>;

/// Runs a scenario in virtual time on a host without any earlier installation of the camera:
/// settings have their defaults and are saved. A recorded camera runs it twice, with equal results.
void RunOn(CameraKind kind, const Scenario& scenario, const ScenarioOptions& options = {});

/// Runs a scenario over any bus, as RunOn() does.
/// @return the world's outcome
host::SimulationOutcome RunOver(bus::UsbBus& bus, const Scenario& scenario, std::uint64_t seed = 1);

/// Lets virtual time pass, 100 ns.
void Sleep(LONGLONG time);

/// The status of an action's failure; STATUS_SUCCESS without one.
[[nodiscard]] NTSTATUS StatusOf(const std::function<void()>& action);

/// The lengths of the blocks that the driver takes from the pool during an action.
[[nodiscard]] std::vector<std::size_t> BlocksTakenBy(const std::function<void()>& action);

/// The same test on every kind of camera.
class EveryCamera : public ::testing::TestWithParam<CameraKind> {
 protected:
  static void Run(const Scenario& scenario) { RunOn(GetParam(), scenario); }
};

#define LIDCAM_ON_EVERY_CAMERA(suite)                                 \
  INSTANTIATE_TEST_SUITE_P(                                           \
      , suite,                                                        \
      ::testing::Values(::lidcam::compliance::CameraKind::Simulated,  \
                        ::lidcam::compliance::CameraKind::Recorded,   \
                        ::lidcam::compliance::CameraKind::Disturbed), \
      [](const auto& kind) { return ::lidcam::compliance::NameOf(kind.param); })

}  // namespace lidcam::compliance
