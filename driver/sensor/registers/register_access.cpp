#include "driver/sensor/registers/register_access.h"

#include "driver/core/base/camera_trace.h"
#include "driver/sensor/registers/register_names.h"
#include "driver/sensor/registers/register_requests.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

const char* ChipName(Chip chip) {
  return chip == Chip::Bridge ? "bridge" : "sensor";
}

Status SendWrite(CameraContext& context, std::uint32_t index, std::uint32_t value) {
  std::uint32_t length = 0;
  return context.WriteRequest(context.TransportContext, kRequestWrite, index, value, nullptr,
                              &length);
}

// The byte at `result` changes on success only.
Status SendRead(CameraContext& context, std::uint32_t index, std::uint8_t& result) {
  std::uint8_t byte = 0;
  std::uint32_t length = 1;
  const Status status = context.ReadRequest(context.TransportContext, kRequestRead, index,
                                            kReadRequestValue, &byte, &length);
  if (status == 0) result = byte;
  return status;
}

Status WriteSelected(CameraContext& context, Chip chip, RegisterAddress address,
                     std::uint32_t value) {
  const auto byte = static_cast<std::uint8_t>(value & 0xFF);
  SendWrite(context, kSelectRegister, SelectForWrite(chip));
  const Status status = SendWrite(context, address, byte);
  if (status == 0) {
    UpdateShadowRegister(context, address, byte, chip);
    TraceCamera(&context, "bus  write %s %04X=%02X", ChipName(chip), address, byte);
  } else {
    TraceCamera(&context, "bus  write %s %04X=%02X failed %d", ChipName(chip), address, byte,
                status);
  }
  return status;
}

Status ReadSelected(CameraContext& context, Chip chip, RegisterAddress address,
                    std::uint8_t& result) {
  SendWrite(context, kSelectRegister, SelectForRead(chip));
  const Status status = SendRead(context, address, result);
  if (status == 0) {
    TraceCamera(&context, "bus  read  %s %04X -> %02X", ChipName(chip), address, result);
  } else {
    TraceCamera(&context, "bus  read  %s %04X failed %d", ChipName(chip), address, status);
  }
  return status;
}

Status ApplicationWrite(CameraContext& context, Chip chip, RegisterAddress address,
                        std::uint32_t value) {
  while (context.DriverRegisterBusy != 0) YieldProcessor();
  context.AppRegisterBusy = 1;
  const Status status = WriteSelected(context, chip, address, value);
  context.AppRegisterBusy = 0;
  return status;
}

Status FramePathWrite(CameraContext& context, Chip chip, RegisterAddress address,
                      std::uint32_t value) {
  if (context.AppRegisterBusy != 0) {
    TraceCamera(&context, "bus  write %s %04X=%02X refused", ChipName(chip), address, value & 0xFF);
    return kRegisterAccessRefused;
  }
  context.DriverRegisterBusy = 1;
  const Status status = WriteSelected(context, chip, address, value);
  context.DriverRegisterBusy = 0;
  return status;
}

// After the call the record may be freed, since this user of it is no longer waited for: nothing of
// it is touched. The volatile access keeps the endless loop defined.
[[noreturn]] void StopForGood(CameraContext& context, RegisterAddress address) {
  TraceCamera(&context, "bus  read  bridge %04X stops for good", address);
  if (context.ThreadStops != nullptr) context.ThreadStops(context.TransportContext);
  const volatile bool isStopped = true;
  for (;;) {
    static_cast<void>(isStopped);
    YieldProcessor();
  }
}

// A bridge register that later read-modify-write steps start from, and its shadow.
struct BridgeShadow {
  constexpr BridgeShadow(RegisterAddress address, Shared<std::uint8_t> CameraContext::*field)
      : Register(RegisterNumberOf(address)), Field(field) {}

  std::uint8_t Register;
  Shared<std::uint8_t> CameraContext::*Field;
};

// In the order in which bring-up reads them.
constexpr BridgeShadow kBridgeShadows[] = {
    {BridgeRegister::Orientation, &CameraContext::ShadowFF26},
    {BridgeRegister::AutomaticExposure, &CameraContext::ShadowFF0D},
    {BridgeRegister::Effect, &CameraContext::ShadowFF42},
    {BridgeRegister::BackLight, &CameraContext::ShadowFF64},
    {BridgeRegister::FlickerBand, &CameraContext::FlickerBandStep},
};

struct SensorShadow {
  constexpr SensorShadow(SensorType type, RegisterAddress address, bool readAtBringUp,
                         Shared<std::uint8_t> CameraContext::*field)
      : Type(type),
        Register(RegisterNumberOf(address)),
        ReadAtBringUp(readAtBringUp),
        Field(field) {}

  SensorType Type;
  std::uint8_t Register;
  bool ReadAtBringUp;
  Shared<std::uint8_t> CameraContext::*Field;
};

constexpr SensorShadow kSensorShadows[] = {
    {SensorTypeVGA0408, SensorRegister::VgaOrientation, true,
     &CameraContext::ShadowSensor0CVGA0408},
    {SensorTypeVGA0708, SensorRegister::VgaOrientation, true, &CameraContext::ShadowSensor0C},
    {SensorTypeVGA7648, SensorRegister::OvReset, false, &CameraContext::ShadowSensor12},
    {SensorTypeVGA7648, 0xFF75, false, &CameraContext::ShadowSensor75},
};

constexpr std::int32_t ClockDividerOf(std::uint8_t value) {
  return 1 << (value & kClockDividerBits);
}

void UpdateBridgeShadow(CameraContext& context, std::uint8_t number, std::uint8_t value) {
  if (RegisterAddressOf(number) == BridgeRegister::Mode)
    context.ClockDivider = ClockDividerOf(value);
  for (const BridgeShadow& shadow : kBridgeShadows) {
    if (shadow.Register == number) context.*shadow.Field = value;
  }
}

void UpdateSensorShadow(CameraContext& context, std::uint8_t number, std::uint8_t value) {
  for (const SensorShadow& shadow : kSensorShadows) {
    if (shadow.Type == context.SensorType && shadow.Register == number) {
      context.*shadow.Field = value;
    }
  }
}

}  // namespace

Status WriteBridgeRegister(CameraContext& context, RegisterAddress address, std::uint32_t value) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return ApplicationWrite(context, Chip::Bridge, address, value);
}

Status WriteSensorRegister(CameraContext& context, RegisterAddress address, std::uint32_t value) {
  return ApplicationWrite(context, Chip::Sensor, address, value);
}

Status DriverWriteBridgeRegister(CameraContext& context, RegisterAddress address,
                                 std::uint32_t value) {
  return FramePathWrite(context, Chip::Bridge, address, value);
}

Status DriverWriteSensorRegister(CameraContext& context, RegisterAddress address,
                                 std::uint32_t value) {
  return FramePathWrite(context, Chip::Sensor, address, value);
}

Status ReadBridgeRegister(CameraContext& context, RegisterAddress address, std::uint8_t& result) {
  // Read once, on purpose: a read that finds the frame path on the bus never continues.
  if (context.DriverRegisterBusy != 0) StopForGood(context, address);
  context.AppRegisterBusy = 1;
  const Status status = ReadSelected(context, Chip::Bridge, address, result);
  context.AppRegisterBusy = 0;
  return status;
}

Status DriverReadBridgeRegister(CameraContext& context, RegisterAddress address,
                                std::uint8_t& result) {
  if (context.AppRegisterBusy != 0) {
    TraceCamera(&context, "bus  read  bridge %04X refused", address);
    return kRegisterAccessRefused;
  }
  context.DriverRegisterBusy = 1;
  const Status status = ReadSelected(context, Chip::Bridge, address, result);
  context.DriverRegisterBusy = 0;
  return status;
}

Status ReadSensorRegister(CameraContext& context, RegisterAddress address, std::uint8_t& result) {
  return ReadSelected(context, Chip::Sensor, address, result);
}

Status RawWriteRegister(CameraContext& context, std::uint16_t address, std::uint16_t value) {
  const Status status = SendWrite(context, address, value);
  if (status == 0) {
    TraceCamera(&context, "bus  write raw %04X=%04X", address, value);
  } else {
    TraceCamera(&context, "bus  write raw %04X=%04X failed %d", address, value, status);
  }
  return status;
}

Status RawReadRegister(CameraContext& context, std::uint16_t address, std::uint8_t& result) {
  const Status status = SendRead(context, address, result);
  if (status == 0) {
    TraceCamera(&context, "bus  read  raw %04X -> %02X", address, result);
  } else {
    TraceCamera(&context, "bus  read  raw %04X failed %d", address, status);
  }
  return status;
}

void UpdateShadowRegister(CameraContext& context, RegisterAddress address, std::uint8_t value,
                          Chip chip) {
  const auto number = static_cast<std::uint8_t>(address & 0xFF);
  if (chip == Chip::Sensor) {
    UpdateSensorShadow(context, number, value);
  } else {
    UpdateBridgeShadow(context, number, value);
  }
}

Status ReadShadowRegisters(CameraContext& context) {
  std::uint8_t byte = 0;
  Status status = 0;
  for (const BridgeShadow& shadow : kBridgeShadows) {
    status = ReadBridgeRegister(context, RegisterAddressOf(shadow.Register), byte);
    context.*shadow.Field = byte;
  }
  for (const SensorShadow& shadow : kSensorShadows) {
    if (!shadow.ReadAtBringUp || shadow.Type != context.SensorType) continue;
    status = ReadSensorRegister(context, RegisterAddressOf(shadow.Register), byte);
    context.*shadow.Field = byte;
  }
  return status;
}

}  // namespace lidcam
