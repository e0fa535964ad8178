#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cstring>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

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
/// Nobody waits longer for a frame of a camera that runs, be it disturbed.
inline constexpr LONGLONG kFrameWait = 3 * kSecond;

/// What stands behind the driver.
enum class CameraKind {
  Simulated,
  Recorded,   ///< the scenario is recorded from the simulated camera first, then replayed
  Disturbed,  ///< the simulated camera on a bus of mild faults
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

  /// The camera is taken out in order and plugged in again, into the same place. Files are closed.
  void Replug();

  /// Takes the camera and the driver away; expects that nothing is left of them.
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

/// Runs a scenario in virtual time on a host that has never seen the camera: settings have their
/// defaults and are kept. A recorded camera runs it twice, and must take the same course.
void RunOn(CameraKind kind, const Scenario& scenario, const ScenarioOptions& options = {});

/// Runs a scenario over any bus, as RunOn() does.
/// @return what the world came to
host::SimulationOutcome RunOver(bus::UsbBus& bus, const Scenario& scenario, std::uint64_t seed = 1);

/// Lets virtual time pass, 100 ns.
void Sleep(LONGLONG time);

/// The status with which an action is refused; STATUS_SUCCESS if it isn't.
[[nodiscard]] NTSTATUS StatusOf(const std::function<void()>& action);

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
