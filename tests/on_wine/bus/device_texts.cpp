#include "tests/on_wine/bus/device_texts.h"

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace lidcam::wine {
namespace {

constexpr bus::SetupPacket kGetDeviceDescriptor{0x80, 6, 0x0100, 0, 18};

std::wstring Hex(unsigned value, std::size_t digits) {
  constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
  std::wstring text(digits, L'0');
  for (std::size_t i = digits; i-- > 0; value >>= 4) text[i] = kDigits[value & 0xF];
  return text;
}

class DeviceDescriptor {
 public:
  explicit DeviceDescriptor(bus::UsbBus& bus) {
    const bus::ControlResult result = bus.ControlTransfer(kGetDeviceDescriptor, bytes_);
    if (result != bus::ControlResult{bus::UsbStatus::Ok, kGetDeviceDescriptor.Length}) {
      throw std::runtime_error("the camera gives no device descriptor");
    }
  }

  [[nodiscard]] std::wstring Byte(std::size_t at) const { return Hex(bytes_[at], 2); }
  [[nodiscard]] std::wstring Word(std::size_t at) const {
    return Hex(bytes_[at] | unsigned{bytes_[at + 1]} << 8, 4);
  }

 private:
  std::array<std::uint8_t, kGetDeviceDescriptor.Length> bytes_{};
};

}  // namespace

DeviceTexts ReadDeviceTexts(bus::UsbBus& bus) {
  const DeviceDescriptor descriptor(bus);
  const std::wstring device = L"USB\\VID_" + descriptor.Word(8) + L"&PID_" + descriptor.Word(10);
  const std::wstring deviceClass = L"USB\\Class_" + descriptor.Byte(4);
  const std::wstring subClass = deviceClass + L"&SubClass_" + descriptor.Byte(5);
  const std::wstring protocol = subClass + L"&Prot_" + descriptor.Byte(6);
  const std::wstring zero(1, L'\0');
  return {
      .DeviceId = device,
      // The camera has no serial number, and the bus one port: a camera that is plugged in again is
      // the same device, with its settings.
      .InstanceId = L"1",
      .HardwareIds = device + L"&REV_" + descriptor.Word(12) + zero + device + zero,
      .CompatibleIds = protocol + zero + subClass + zero + deviceClass + zero,
      .Description = L"Simulated notebook camera",
      .Location = L"Port_#0001.Hub_#0001"};
}

}  // namespace lidcam::wine
