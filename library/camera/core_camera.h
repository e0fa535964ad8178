#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "bus/enumeration.h"
#include "bus/usb_bus.h"
#include "driver/core/record/camera_context.h"

namespace lidcam::app {

/// The camera core brought up over a bus, without a host around it: enumeration, then CreateCameraContext()
/// with request callbacks that become control transfers. Destroyed, it saves the settings and frees the
/// record. For repeated bring-ups whose requests are compared; all other code uses a testbed.
class CoreCamera {
 public:
  /// Throws CommandError if the device does not answer or the bring-up fails.
  ///
  /// @param bus        must outlive the camera
  /// @param driverKey  where its settings are; empty: the key of its identity
  explicit CoreCamera(bus::UsbBus& bus, const std::u16string& driverKey = {});
  CoreCamera(const CoreCamera&) = delete;
  CoreCamera& operator=(const CoreCamera&) = delete;
  ~CoreCamera();

  [[nodiscard]] CameraContext& Context() { return *context_; }

 private:
  struct Transport;
  struct TransportDeleter {
    void operator()(Transport* transport) const;
  };
  struct ContextDeleter {
    void operator()(CameraContext* context) const;
  };

  bus::UsbDeviceInfo device_;
  std::unique_ptr<Transport, TransportDeleter> transport_;
  std::unique_ptr<CameraContext, ContextDeleter> context_;
};

/// The name of a sensor type as users know it: "VGA0708", "OV7660" and so on.
[[nodiscard]] std::string_view SensorName(std::int32_t sensorType);

/// The sensor type of a name as SensorName() gives it; nothing for another name.
[[nodiscard]] std::optional<std::int32_t> SensorTypeOf(std::string_view name);

/// Whether the configuration has eight alternate settings rather than four.
[[nodiscard]] bool HasLongConfiguration(const bus::UsbDeviceInfo& device);

/// Where the settings of a camera of this identity are in the registry.
[[nodiscard]] std::u16string DriverKeyOf(const bus::UsbDeviceInfo& device);

/// "1af0:0511".
[[nodiscard]] std::string IdentityText(const bus::UsbDeviceInfo& device);

}  // namespace lidcam::app
