#pragma once

#include <cstdint>
#include <span>

#include "camera_model/chips/sensor_model.h"

namespace lidcam::camera_model {

/// A USB identity under which the camera is sold, and the sensors that are fitted behind it.
struct CameraIdentity {
  std::uint16_t VendorId = 0;
  std::uint16_t ProductId = 0;
  /// The default sensor first.
  std::span<const SensorModel> Sensors;

  [[nodiscard]] bool MayHave(SensorModel model) const;
};

/// The seven identities, in ascending order.
[[nodiscard]] std::span<const CameraIdentity> AllIdentities();

/// @return null for an unknown pair
[[nodiscard]] const CameraIdentity* FindIdentity(std::uint16_t vendorId, std::uint16_t productId);

}  // namespace lidcam::camera_model
