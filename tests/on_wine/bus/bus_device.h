#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "tests/on_wine/bus/camera_device.h"
#include "tests/on_wine/bus/device_role.h"

namespace lidcam::wine {

/// The bus itself: the functional device of this driver, with one port. User mode opens it as
/// "\\.\LidcamBus".
class BusDevice final : public DeviceRole {
 public:
  /// Attaches a bus to the device that plug and play has found.
  /// @throws std::runtime_error if the kernel has no memory for it
  BusDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice);
  ~BusDevice() override;

  NTSTATUS PlugAndPlay(PIRP irp) override;
  NTSTATUS Power(PIRP irp) override;
  NTSTATUS SystemControl(PIRP irp) override { return Forward(irp); }
  NTSTATUS DeviceControl(PIRP irp) override;

  /// Returns a camera whose last request is completed: it was pulled out, and its driver has
  /// detached.
  /// @return null while it is still plugged in
  [[nodiscard]] std::unique_ptr<CameraDevice> TakePulledOut();

 private:
  NTSTATUS Forward(PIRP irp);
  NTSTATUS Start(PIRP irp);
  NTSTATUS TellChildren(PIRP irp);
  NTSTATUS Remove(PIRP irp);
  NTSTATUS PlugIn(std::string_view options);
  NTSTATUS PullOut();
  NTSTATUS UnloadDriver(std::string_view service);
  /// Waits until the removal of a camera that was pulled out is over.
  /// @return false after the time limit
  [[nodiscard]] bool WaitForRemoval();

  PDRIVER_OBJECT const driver_;
  PDEVICE_OBJECT const physicalDevice_;
  PDEVICE_OBJECT device_ = nullptr;
  PDEVICE_OBJECT below_ = nullptr;
  bool hasLink_ = false;

  std::mutex
      mutex_;  ///< guards the members below; not held during a wait for the kernel or a camera
  std::unique_ptr<CameraDevice> camera_;
  bool isPresent_ = false;            ///< the camera is plugged in
  bool isKnown_ = false;              ///< enumerated by plug and play: it needs a removal request
  std::uint64_t timesTold_ = 0;       ///< how often the kernel has queried the children
  std::condition_variable progress_;  ///< a camera was removed, or the kernel has queried
};

}  // namespace lidcam::wine
