#include "driver/sensor/identification/sensor_identification.h"

#include "driver/core/base/camera_trace.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

struct ProbeWrite {
  Status (*Write)(CameraContext& context, RegisterAddress address, std::uint32_t value);
  RegisterAddress Address;
  std::uint8_t Value;
};

// Sets the serial bus up for the 8-bit family and resets the sensor through it.
constexpr ProbeWrite kOpenSensorBus[] = {
    {WriteBridgeRegister, BridgeRegister::PowerAndLed, 0x06},
    {WriteBridgeRegister, BridgeRegister::SerialAddress, 0x42},
    {WriteBridgeRegister, BridgeRegister::Scale, kFullScale},
    {WriteBridgeRegister, BridgeRegister::SerialDataBytes, 1},
    {WriteSensorRegister, SensorRegister::OvReset, kOvResetBit},
};

// Sets the serial bus up for the 16-bit family and selects register page 0.
constexpr ProbeWrite kOpenWideSensorBus[] = {
    {WriteBridgeRegister, BridgeRegister::SerialDataBytes, 2},
    {WriteBridgeRegister, BridgeRegister::PowerAndLed, kPowerBit},
    {WriteBridgeRegister, BridgeRegister::SerialAddress, 0xBA},
    {WriteBridgeRegister, 0xFF2E, 0x2F},
    {WriteBridgeRegister, BridgeRegister::Scale, kFullScale},
    {WriteBridgeRegister, BridgeRegister::Orientation, 0x10},
    {WriteBridgeRegister, BridgeRegister::LowByteLatch, 0x00},
    {WriteSensorRegister, SensorRegister::Mi1318Page, 0x00},
};

constexpr std::uint8_t kKnownProduct = 0x76;

struct SensorVersion {
  std::uint8_t Version;
  std::uint8_t Product;
};

template <std::size_t Count>
void WriteAll(CameraContext& context, const ProbeWrite (&writes)[Count]) {
  for (const ProbeWrite& write : writes) write.Write(context, write.Address, write.Value);
}

// What a failed read counts as: no sensor of the family answers it in any identity register.
constexpr std::uint8_t kNoIdentity = 0xFF;

std::uint8_t ReadIdentity(CameraContext& context, RegisterAddress address) {
  std::uint8_t value = kNoIdentity;
  ReadSensorRegister(context, address, value);
  return value;
}

SensorVersion ReadVersion(CameraContext& context) {
  SensorVersion result{};
  result.Version = ReadIdentity(context, SensorRegister::OvVersion);
  result.Product = ReadIdentity(context, SensorRegister::OvProduct);
  return result;
}

void Decide(CameraContext& context, SensorType type) {
  context.SensorType = type;
  TraceCamera(&context, "sensor type %d", static_cast<int>(type));
}

// 1AF0:0511. The bridge of this model powers up with its serial bus ready.
void IdentifyHostExposedSensor(CameraContext& context) {
  context.SensorDH10 = 0;
  switch (ReadIdentity(context, SensorRegister::VgaIdentity)) {
    case 0x15:
      Decide(context, SensorTypeVGA0708);
      DbgPrint("sensor type is VGA0708\n");
      break;
    case 0x10:
      Decide(context, SensorTypeVGA0408);
      DbgPrint("sensor type is VGA0408\n");
      break;
    default:
      break;
  }
}

void DecideRevisionOfVersion60(CameraContext& context) {
  switch (ReadIdentity(context, SensorRegister::OvRevision)) {
    case 0x00:
      Decide(context, SensorTypeOV7663);
      DbgPrint("sensor type is OV7663\n");
      break;
    case 0x10:
      Decide(context, SensorTypeOV7660);
      DbgPrint("sensor type is OV7660\n");
      break;
    default:
      Decide(context, SensorTypeOV7660);
      DbgPrint("Warning!!! Read odd sensor value, set sensor type OV7660\n");
      break;
  }
}

void DecideOv7670(CameraContext& context) {
  Decide(context, SensorTypeOV7670);
  DbgPrint("sensor type is OV7670\n");
}

bool DecideByFirstAttempt(CameraContext& context, SensorVersion found) {
  if (found.Product != kKnownProduct) return false;
  switch (found.Version) {
    case 0x60:
      DecideRevisionOfVersion60(context);
      return true;
    case 0x73:
      DecideOv7670(context);
      return true;
    case 0x48:
      Decide(context, SensorTypeVGA7648);
      DbgPrint("sensor type is SensorTypeVGA7648!\n");
      return true;
    default:
      return false;
  }
}

// By elimination: every sensor without a known identity counts as this one, too.
void DecideDh10(CameraContext& context) {
  context.SensorDH10 = 1;
  Decide(context, SensorTypeOV7660);
}

// 1AF0:6010.
void IdentifyOvFamily(CameraContext& context) {
  context.SensorDH10 = 0;
  WriteAll(context, kOpenSensorBus);
  if (DecideByFirstAttempt(context, ReadVersion(context))) return;

  // A second attempt with the sensor's power line switched the other way.
  WriteBridgeRegister(context, BridgeRegister::PowerAndLed, kPowerBit);
  const SensorVersion found = ReadVersion(context);
  if (found.Product == kKnownProduct && found.Version == 0x73) {
    DecideOv7670(context);
    return;
  }
  DecideDh10(context);
  DbgPrint("sensor type is OV7660 with DH1.0\n");
}

// 1AF0:6011. Leaves SensorDH10 alone.
void IdentifyWideFamily(CameraContext& context) {
  WriteAll(context, kOpenWideSensorBus);
  if (ReadIdentity(context, SensorRegister::WideIdentity) == 0x14) {
    Decide(context, SensorTypeMi1318);
    DbgPrint("sensor type is Mi1318\n");
  } else {
    Decide(context, SensorTypeK82);
    DbgPrint("sensor type is K82\n");
  }
}

// 1B17:6100, 1B17:6101 and 1B17:6110 are accepted without a check.
void TrustReserved3(CameraContext& context) {
  Decide(context, SensorTypeReserved3);
}
void TrustVga0408(CameraContext& context) {
  Decide(context, SensorTypeVGA0408);
}
void TrustVga7648(CameraContext& context) {
  Decide(context, SensorTypeVGA7648);
}

// 1B17:6111: one attempt, no messages, and only the OV7660 and OV7663 are distinguished.
void IdentifyOvFamilySilently(CameraContext& context) {
  context.SensorDH10 = 0;
  WriteAll(context, kOpenSensorBus);
  const SensorVersion found = ReadVersion(context);
  if (found.Product != kKnownProduct || found.Version != 0x60) {
    DecideDh10(context);
    return;
  }
  const bool isOv7663 = ReadIdentity(context, SensorRegister::OvRevision) == 0x00;
  Decide(context, isOv7663 ? SensorTypeOV7663 : SensorTypeOV7660);
}

struct UsbIdentity {
  std::uint16_t Vendor;
  std::uint16_t Product;
  void (*Identify)(CameraContext& context);
};

constexpr UsbIdentity kIdentities[] = {
    {0x1AF0, 0x0511, IdentifyHostExposedSensor},
    {0x1AF0, 0x6010, IdentifyOvFamily},
    {0x1AF0, 0x6011, IdentifyWideFamily},
    {0x1B17, 0x6100, TrustReserved3},
    {0x1B17, 0x6101, TrustVga0408},
    {0x1B17, 0x6110, TrustVga7648},
    {0x1B17, 0x6111, IdentifyOvFamilySilently},
};

constexpr std::uint16_t WordAt(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

}  // namespace

void IdentifySensor(CameraContext& context, const std::uint8_t* deviceDescriptor) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const std::uint16_t vendor = WordAt(deviceDescriptor + 8);
  const std::uint16_t product = WordAt(deviceDescriptor + 10);
  for (const UsbIdentity& identity : kIdentities) {
    if (identity.Vendor == vendor && identity.Product == product) {
      identity.Identify(context);
      return;
    }
  }
}

}  // namespace lidcam
