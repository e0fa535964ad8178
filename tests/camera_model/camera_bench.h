#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "camera_model/chips/bridge.h"
#include "camera_model/chips/sensor_model.h"

namespace lidcam::camera_model {

/// Bridge and sensor, controlled by requests as on the wire.
class CameraBench {
 public:
  explicit CameraBench(SensorModel model, std::vector<SensorRegisterOverride> overrides = {},
                       BridgeOptions options = {})
      : sensor{model, overrides}, bridge{sensor, options} {}

  std::optional<std::uint32_t> Send(std::array<std::uint8_t, 8> setup,
                                    std::span<std::uint8_t> data = {}) {
    return bridge.VendorRequest(bus::SetupPacket::FromBytes(setup), data);
  }

  void Select(std::uint8_t value) { Send({0x40, 0xA0, value, 0x00, 0xFF, 0xFF, 0x00, 0x00}); }

  void WriteBridge(std::uint8_t address, std::uint8_t value) {
    Select(0);
    Send({0x40, 0xA0, value, 0x00, address, 0xFF, 0x00, 0x00});
  }

  void WriteSensor(std::uint8_t address, std::uint8_t value) {
    Select(2);
    Send({0x40, 0xA0, value, 0x00, address, 0xFF, 0x00, 0x00});
  }

  /// Commits VGA0708's exposure registers for the next frame start.
  void CommitExposure() { WriteSensor(0x2F, 0x83); }

  std::uint8_t ReadBridge(std::uint8_t address) { return Read(1, address); }
  std::uint8_t ReadSensor(std::uint8_t address) { return Read(3, address); }

  /// Sets the bridge up for a 16-bit sensor.
  void OpenWideBus() {
    WriteBridge(0x7E, 2);
    WriteBridge(0x2B, 0xBA);
  }

  void WriteWide(std::uint8_t address, std::uint16_t value) {
    WriteBridge(0x7F, static_cast<std::uint8_t>(value & 0xFF));
    WriteSensor(address, static_cast<std::uint8_t>(value >> 8));
  }

  std::uint16_t ReadWide(std::uint8_t address) {
    const std::uint8_t high = ReadSensor(address);
    return static_cast<std::uint16_t>(high << 8 | ReadSensor(0xF1));
  }

  Sensor sensor;
  Bridge bridge;

 private:
  std::uint8_t Read(std::uint8_t select, std::uint8_t address) {
    Select(select);
    std::array<std::uint8_t, 1> data{0x77};
    Send({0xC0, 0xA1, 0x01, 0x00, address, 0xFF, 0x01, 0x00}, data);
    return data[0];
  }
};

}  // namespace lidcam::camera_model
