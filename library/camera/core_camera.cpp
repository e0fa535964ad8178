#include "library/camera/core_camera.h"

#include <array>
#include <cstdio>
#include <span>
#include <string>

#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/settings/settings_store.h"
#include "library/base/command_error.h"
#include "platform/host/nt/io/device_object.h"

namespace lidcam::app {
namespace {

// bmRequestType of a vendor request to the device.
constexpr std::uint8_t kVendorOut = 0x40;
constexpr std::uint8_t kVendorIn = 0xC0;

// wTotalLength of the configuration with eight alternate settings.
constexpr std::size_t kLongConfigurationLength = 193;

struct NamedSensor {
  std::int32_t Type;
  std::string_view Name;
};

constexpr std::array kSensorNames = {
    NamedSensor{SensorTypeVGA0408, "VGA0408"}, NamedSensor{SensorTypeReserved3, "Reserved3"},
    NamedSensor{SensorTypeVGA7648, "VGA7648"}, NamedSensor{SensorTypeK82, "K82"},
    NamedSensor{SensorTypeOV7660, "OV7660"},   NamedSensor{SensorTypeOV7663, "OV7663"},
    NamedSensor{SensorTypeVGA0708, "VGA0708"}, NamedSensor{SensorTypeMi1318, "Mi1318"},
    NamedSensor{SensorTypeOV7670, "OV7670"},
};

Status RunRequest(bus::UsbBus& bus, std::uint8_t requestType, std::uint32_t request,
                  std::uint32_t index, std::uint32_t value, void* buffer, std::uint32_t* length) {
  const bus::SetupPacket setup = {
      .RequestType = requestType,
      .Request = static_cast<std::uint8_t>(request & 0xFF),
      .Value = static_cast<std::uint16_t>(value & 0xFFFF),
      .Index = static_cast<std::uint16_t>(index & 0xFFFF),
      .Length = static_cast<std::uint16_t>(*length),
  };
  const bus::ControlResult result =
      bus.ControlTransfer(setup, {static_cast<std::uint8_t*>(buffer), setup.Length});
  const bool isWhole = result.Status == bus::UsbStatus::Ok && result.Transferred == setup.Length;
  *length = result.Status == bus::UsbStatus::Ok ? result.Transferred : 0;
  return isWhole ? 0 : -1;
}

}  // namespace

// The head is where the settings store looks for the device; the bus is ours.
struct CoreCamera::Transport {
  TransportRecordHead Head{};
  host::HostDevice Device;
  bus::UsbBus* Bus = nullptr;

  static Status Write(void* context, std::uint32_t request, std::uint32_t index,
                      std::uint32_t value, void* buffer, std::uint32_t* length) {
    return RunRequest(*static_cast<Transport*>(context)->Bus, kVendorOut, request, index, value,
                      buffer, length);
  }

  static Status Read(void* context, std::uint32_t request, std::uint32_t index, std::uint32_t value,
                     void* buffer, std::uint32_t* length) {
    return RunRequest(*static_cast<Transport*>(context)->Bus, kVendorIn, request, index, value,
                      buffer, length);
  }
};

void CoreCamera::TransportDeleter::operator()(Transport* transport) const {
  delete transport;
}

void CoreCamera::ContextDeleter::operator()(CameraContext* context) const {
  DestroyCameraContext(context);
}

CoreCamera::CoreCamera(bus::UsbBus& bus, const std::u16string& driverKey) {
  try {
    device_ = bus::EnumerateDevice(bus);
  } catch (const bus::EnumerationError& error) {
    throw CommandError(error.what());
  }
  transport_.reset(new Transport);
  transport_->Device.DriverKey = driverKey.empty() ? DriverKeyOf(device_) : driverKey;
  transport_->Head.PhysicalDeviceObject = &transport_->Device;
  transport_->Bus = &bus;

  const CameraTransport callbacks = {transport_.get(), Transport::Write, Transport::Read, nullptr};
  CameraCapabilities capabilities{};
  context_.reset(CreateCameraContext(callbacks, capabilities, device_.DeviceDescriptor.data(),
                                     HasLongConfiguration(device_) ? 1 : 0));
  if (!context_) {
    throw CommandError("camera " + IdentityText(device_) +
                       " did not come up: its last register could not be read");
  }
}

CoreCamera::~CoreCamera() {
  if (context_) SaveSettings(*context_, kSettingsSubkey);
}

std::string_view SensorName(std::int32_t sensorType) {
  for (const NamedSensor& sensor : kSensorNames) {
    if (sensor.Type == sensorType) return sensor.Name;
  }
  return "unknown";
}

std::optional<std::int32_t> SensorTypeOf(std::string_view name) {
  for (const NamedSensor& sensor : kSensorNames) {
    if (sensor.Name == name) return sensor.Type;
  }
  return std::nullopt;
}

bool HasLongConfiguration(const bus::UsbDeviceInfo& device) {
  return device.Configuration.size() == kLongConfigurationLength;
}

// Each identity has settings of its own: the low digits of their product numbers all differ.
std::u16string DriverKeyOf(const bus::UsbDeviceInfo& device) {
  return host::ImagingDriverKey(device.Product & 0xFFFU);
}

std::string IdentityText(const bus::UsbDeviceInfo& device) {
  std::array<char, 10> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", unsigned{device.Vendor},
                unsigned{device.Product});
  return text.data();
}

}  // namespace lidcam::app
