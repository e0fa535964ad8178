#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "camera_model/chips/sensor_model.h"
#include "camera_model/device/descriptors.h"
#include "camera_model/device/usb_device.h"
#include "camera_model/optics/light_schedule.h"

namespace lidcam::camera_model {

/// A simulated camera, described by a user in one word.
struct CameraOptions {
  std::uint16_t VendorId = 0x1AF0;
  std::uint16_t ProductId = 0x0511;
  SensorModel Sensor = SensorModel::VGA0708;
  ConfigurationKind Configuration = ConfigurationKind::Long;
  std::uint64_t Seed = 1;
  std::string SceneFile{};  ///< empty: the test card
  unsigned MainsRate = 0;   ///< as SceneLight::MainsRate
  LightSchedule Light{};    ///< as SceneLight::Schedule

  friend bool operator==(const CameraOptions&, const CameraOptions&) = default;
};

/// Reads "sim[:vid:pid[,sensor=NAME][,config=long|short][,seed=N][,scene=FILE][,mains=50Hz|60Hz]
/// [,light=LIGHT@TIME;...]]" (one word); the options may also follow "sim" alone. A scene's file
/// name ends at the next comma. The steps of the light are those of ParseLightSchedule, separated by ';' here.
/// @throws std::invalid_argument with the error and the expected form
[[nodiscard]] CameraOptions ParseCameraOptions(std::string_view text);

/// Opens the scene and checks that the sensor fits the identity.
/// @throws std::invalid_argument, std::runtime_error with a text for the user
[[nodiscard]] UsbDeviceOptions ToDeviceOptions(const CameraOptions& options);

}  // namespace lidcam::camera_model
