#include "camera_model/device/camera_identity.h"

#include <algorithm>

namespace lidcam::camera_model {
namespace {

using enum SensorModel;

constexpr SensorModel kSensorsOf0511[] = {VGA0708, VGA0408};
constexpr SensorModel kSensorsOf6010[] = {OV7670, OV7660, OV7663, VGA7648};
constexpr SensorModel kSensorsOf6011[] = {Mi1318, K82};
constexpr SensorModel kSensorsOf6100[] = {Reserved3};
constexpr SensorModel kSensorsOf6101[] = {VGA0408};
constexpr SensorModel kSensorsOf6110[] = {VGA7648};
constexpr SensorModel kSensorsOf6111[] = {OV7660, OV7663, OV7670, VGA7648};

constexpr CameraIdentity kIdentities[] = {
    {0x1AF0, 0x0511, kSensorsOf0511}, {0x1AF0, 0x6010, kSensorsOf6010},
    {0x1AF0, 0x6011, kSensorsOf6011}, {0x1B17, 0x6100, kSensorsOf6100},
    {0x1B17, 0x6101, kSensorsOf6101}, {0x1B17, 0x6110, kSensorsOf6110},
    {0x1B17, 0x6111, kSensorsOf6111},
};

}  // namespace

bool CameraIdentity::MayHave(SensorModel model) const {
  return std::find(Sensors.begin(), Sensors.end(), model) != Sensors.end();
}

std::span<const CameraIdentity> AllIdentities() {
  return kIdentities;
}

const CameraIdentity* FindIdentity(std::uint16_t vendorId, std::uint16_t productId) {
  for (const CameraIdentity& identity : kIdentities) {
    if (identity.VendorId == vendorId && identity.ProductId == productId) return &identity;
  }
  return nullptr;
}

}  // namespace lidcam::camera_model
