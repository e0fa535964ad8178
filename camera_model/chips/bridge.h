#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "bus/usb_types.h"
#include "camera_model/chips/sensor_model.h"

namespace lidcam::camera_model {

/// Unusual behaviour of a module, for tests.
struct BridgeOptions {
  /// The sensor's power-down pin has the opposite polarity: it answers only while bit 2 of bridge
  /// register 0x09 is clear.
  bool SensorNeedsPowerBit2Clear = false;
};

/// The bridge chip between USB and sensor: a select register, 256 registers of its own, and a serial
/// bus to the sensor's registers.
///
/// A sensor that is addressed wrongly (bus address in register 0x2B, data bytes in 0x7E) does not
/// answer: it reads as 0xFF, the level of an idle bus, and writes are lost. Neither is visible on
/// USB.
class Bridge {
 public:
  explicit Bridge(Sensor& sensor, BridgeOptions options = {});

  /// Carries out a vendor request.
  /// @param data  the data stage; a read stores its byte at the front
  /// @return bytes of the data stage, or nothing if the chip stalls: any request but 0xA0 out with
  ///         no data and 0xA1 in with one byte, and addresses below 0xFF00
  std::optional<std::uint32_t> VendorRequest(const bus::SetupPacket& setup,
                                             std::span<std::uint8_t> data);

  /// Reads a register of the bridge without a request.
  [[nodiscard]] std::uint8_t Peek(std::uint8_t address) const { return registers_[address]; }
  [[nodiscard]] const Sensor& AttachedSensor() const { return sensor_; }

  /// The LED beside the lens (register 0x09 bit 4).
  [[nodiscard]] bool IsLedOn() const { return (registers_[0x09] & 0x10) != 0; }
  /// The sensor delivers pictures: register 0x09 bit 0, standby, is clear.
  [[nodiscard]] bool IsSensorRunning() const { return (registers_[0x09] & 0x01) == 0; }
  /// Divisor of the pixel clock, from the low two bits of register 0x0A: 1, 2, 4 or 8.
  [[nodiscard]] unsigned ClockDivisor() const { return 1U << (registers_[0x0A] & 0x03U); }

  /// Passes the sensor the begin of a frame.
  void StartFrame() { sensor_.StartFrame(); }
  void SettleExposure() { sensor_.SettleExposure(); }

  /// Sets bridge and sensor to their power-up values.
  void PowerUp();

 private:
  [[nodiscard]] bool SensorAnswers() const;
  [[nodiscard]] bool SensorSelected() const { return select_ == 2 || select_ == 3; }
  void WriteSelected(std::uint8_t address, std::uint8_t value);
  [[nodiscard]] std::uint8_t ReadSelected(std::uint8_t address);

  Sensor& sensor_;
  BridgeOptions options_;
  std::array<std::uint8_t, 256> registers_{};
  std::uint16_t select_ = 0;
};

}  // namespace lidcam::camera_model
