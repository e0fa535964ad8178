#include "driver/sensor/registers/wide_registers.h"

#include "driver/sensor/registers/register_access.h"

namespace lidcam {
namespace {

constexpr RegisterAddress kLowByteLatch = 0xFF7F;
constexpr RegisterAddress kPageRegisterK82 = 0xFF01;
constexpr RegisterAddress kPageRegisterMi1318 = 0xFFF0;
constexpr RegisterAddress kLowByteOfLastRead = 0xFFF1;

}  // namespace

Status WriteWideSensorRegister(CameraContext& context, RegisterAddress address,
                               std::uint16_t value) {
  WriteBridgeRegister(context, kLowByteLatch, value);
  return WriteSensorRegister(context, address, static_cast<std::uint32_t>(value) >> 8);
}

Status SelectSensorPage(CameraContext& context, std::uint16_t page) {
  const RegisterAddress pageRegister =
      context.SensorType == SensorTypeK82 ? kPageRegisterK82 : kPageRegisterMi1318;
  return WriteWideSensorRegister(context, pageRegister, page);
}

Status ReadWideSensorRegister(CameraContext& context, RegisterAddress address, std::uint8_t& high,
                              std::uint8_t& low) {
  ReadSensorRegister(context, address, high);
  return ReadSensorRegister(context, kLowByteOfLastRead, low);
}

}  // namespace lidcam
