#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "bus/usb_types.h"
#include "camera_model/chips/bridge.h"
#include "camera_model/chips/sensor_model.h"
#include "camera_model/device/camera_identity.h"
#include "camera_model/device/descriptors.h"
#include "camera_model/frames/raw_frame_stream.h"
#include "camera_model/optics/exposure.h"
#include "camera_model/scene/scene.h"

namespace lidcam::camera_model {

/// The camera, and the scene and light in front of it.
struct UsbDeviceOptions {
  std::uint16_t VendorId = 0x1AF0;
  std::uint16_t ProductId = 0x0511;
  std::optional<SensorModel> Sensor{};  ///< nothing: the identity's default sensor
  ConfigurationKind Configuration = ConfigurationKind::Long;
  std::uint64_t Seed = 1;
  std::shared_ptr<Scene> View{};  ///< null: the test card
  SceneLight Light{};
  std::vector<SensorRegisterOverride> SensorRegisters{};
  BridgeOptions Bridge{};
};

/// The camera on the bus: descriptors, standard requests, vendor requests to the bridge, and the
/// isochronous stream microframe by microframe. Not synchronized; the caller provides the time.
class UsbDevice {
 public:
  /// @throws std::invalid_argument for an unknown identity, or a sensor that is never
  ///         fitted behind it
  explicit UsbDevice(const UsbDeviceOptions& options);

  /// Carries out a request on endpoint 0.
  /// @param data        the data stage, at least `setup.Length` bytes
  /// @param microframe  bus time of the request
  /// @return bytes of the data stage, or nothing if the device stalls
  std::optional<std::uint32_t> Control(const bus::SetupPacket& setup, std::span<std::uint8_t> data,
                                       std::uint64_t microframe);

  struct IsochronousAnswer {
    std::uint32_t Length = 0;
    bool HasBusError = false;
    bool IsStalled = false;
  };

  /// Returns one microframe's packet of the isochronous endpoint.
  /// @param out  at least BytesPerMicroframe() bytes
  IsochronousAnswer Isochronous(std::uint64_t microframe, std::span<std::uint8_t> out);

  /// Bytes per microframe of the selected setting; 0 without a stream.
  [[nodiscard]] std::uint32_t BytesPerMicroframe() const;
  /// Bytes per microframe of an alternate setting; 0 for an unknown one.
  [[nodiscard]] std::uint32_t BytesPerMicroframe(std::uint8_t alternateSetting) const;

  [[nodiscard]] std::uint8_t AlternateSetting() const { return alternateSetting_; }
  [[nodiscard]] bool IsConfigured() const { return configuration_ != 0; }
  [[nodiscard]] const Bridge& Chip() const { return bridge_; }
  [[nodiscard]] RawFrameStream& Stream() { return stream_; }

 private:
  std::optional<std::uint32_t> GetDescriptor(const bus::SetupPacket& setup,
                                             std::span<std::uint8_t> data) const;
  std::optional<std::uint32_t> SetInterface(const bus::SetupPacket& setup,
                                            std::uint64_t microframe);
  std::optional<std::uint32_t> ClearFeature(const bus::SetupPacket& setup);

  const CameraIdentity& identity_;
  ConfigurationKind configurationKind_;
  Sensor sensor_;
  Bridge bridge_;
  std::shared_ptr<Scene> scene_;
  RawFrameStream stream_;
  std::uint8_t configuration_ = 0;
  std::uint8_t alternateSetting_ = 0;
};

}  // namespace lidcam::camera_model
