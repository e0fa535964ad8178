#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bus/enumeration.h"
#include "driver/core/record/camera_context.h"
#include "library/camera/gates/bus_gates.h"
#include "library/camera/source/camera_source.h"
#include "platform/host/client/camera.h"
#include "testbed/installed_testbed.h"
#include "testbed/metered_bus.h"

namespace lidcam::app {

/// Whether the camera's bus keeps the machine's time rather than virtual time.
[[nodiscard]] bool IsInRealTime(const CameraChoice& choice);

/// Runs `body` in the time that the camera's bus keeps: the machine's for a bus that is paced, virtual
/// time for one that runs freely and for recordings. Passes its exceptions on.
void RunInTimeOf(const CameraChoice& choice, const std::function<void()>& body);

/// The buses between the host and a camera's.
struct CameraGates {
  explicit CameraGates(bus::UsbBus& bus)
      : Plugged(bus), Meter(Plugged, {}), Stream(Meter), Setting(Stream) {}

  RecordedDevice Plugged;
  testbed::MeteredBus Meter;
  StreamGate Stream;
  SettingGate Setting;
};

/// A camera that is plugged in, with its driver installed and started, and opened as any application
/// opens it.
class OpenedCamera {
 public:
  OpenedCamera(testbed::InstalledTestbed& installed, const client::Camera& camera,
               const bus::UsbDeviceInfo& device, CameraGates& gates);
  OpenedCamera(const OpenedCamera&) = delete;
  OpenedCamera& operator=(const OpenedCamera&) = delete;

  [[nodiscard]] const client::Camera& Camera() const { return camera_; }
  [[nodiscard]] const bus::UsbDeviceInfo& Device() const { return device_; }
  [[nodiscard]] std::int32_t SensorType() const { return sensorType_; }
  /// Selects the alternate settings that a stream can get.
  [[nodiscard]] SettingGate& Gate() { return gates_.Setting; }
  /// Ends a stream's data.
  [[nodiscard]] StreamGate& Sending() { return gates_.Stream; }

  /// Calls `use` with the camera's record, which the driver is using. Not called once the device is
  /// gone.
  void WithContext(const std::function<void(CameraContext& context)>& use) const {
    installed_.WithCamera(use);
  }

  /// What was read from the camera.
  [[nodiscard]] testbed::BusMeter Meter() const { return gates_.Meter.Meter(); }
  [[nodiscard]] testbed::BusEnd End() const { return installed_.End(); }
  [[nodiscard]] bool IsUnplugged() const { return End() == testbed::BusEnd::Unplugged; }

  /// Sends the driver the surprise removal, once.
  void TellGone();
  [[nodiscard]] bool IsToldGone() const { return isToldGone_; }

 private:
  testbed::InstalledTestbed& installed_;
  const client::Camera& camera_;
  const bus::UsbDeviceInfo& device_;
  CameraGates& gates_;
  std::int32_t sensorType_ = 0;
  bool isToldGone_ = false;
};

/// Chooses the driver key of a camera, with its settings, once its identity is known.
using DriverKeyChoice = std::function<std::u16string(const bus::UsbDeviceInfo& device)>;

/// Plugs the camera in, installs its driver, opens it for `use`, and takes everything down in order,
/// also if `use` throws: the driver saves its settings then. Within a world of the bus's time.
///
/// Throws CommandError if the camera doesn't come up.
///
/// @param key  none: the key of the camera's identity
void WithOpenedCamera(bus::UsbBus& bus, const std::function<void(OpenedCamera& opened)>& use,
                      const DriverKeyChoice& key = {});

/// Takes what a command opens: the bus of its camera, in virtual time unless the camera is plugged in, for
/// commands that don't stream.
void WithOpenedCameraOf(CameraChoice choice, const std::function<void(OpenedCamera& opened)>& use);

}  // namespace lidcam::app
