#include "driver/sensor/registers/wide_registers.h"

#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {

Status WriteWideSensorRegister(CameraContext& context, RegisterAddress address,
                               std::uint16_t value) {
  WriteBridgeRegister(context, BridgeRegister::LowByteLatch, value);
  return WriteSensorRegister(context, address, static_cast<std::uint32_t>(value) >> 8);
}

Status SelectSensorPage(CameraContext& context, std::uint16_t page) {
  const RegisterAddress pageRegister =
      context.SensorType == SensorTypeK82 ? SensorRegister::K82Page : SensorRegister::Mi1318Page;
  return WriteWideSensorRegister(context, pageRegister, page);
}

Status ReadWideSensorRegister(CameraContext& context, RegisterAddress address, std::uint8_t& high,
                              std::uint8_t& low) {
  ReadSensorRegister(context, address, high);
  return ReadSensorRegister(context, SensorRegister::LowByteOfLastRead, low);
}

}  // namespace lidcam
