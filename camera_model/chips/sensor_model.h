#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "camera_model/chips/exposure_banks.h"

namespace lidcam::camera_model {

/// The image sensors that are fitted behind the bridge. The numbers are those printed on the modules.
enum class SensorModel : std::uint8_t {
  VGA0408 = 1,
  Reserved3 = 3,
  VGA7648 = 5,
  K82 = 6,
  OV7660 = 7,
  OV7663 = 8,
  VGA0708 = 9,
  Mi1318 = 10,
  OV7670 = 11,
};

inline constexpr std::array kAllSensorModels{
    SensorModel::VGA0408, SensorModel::Reserved3, SensorModel::VGA7648,
    SensorModel::K82,     SensorModel::OV7660,    SensorModel::OV7663,
    SensorModel::VGA0708, SensorModel::Mi1318,    SensorModel::OV7670};

[[nodiscard]] std::string_view NameOf(SensorModel model);

/// @return nothing for an unknown name; names are compared exactly
[[nodiscard]] std::optional<SensorModel> SensorModelByName(std::string_view name);

/// A register value that differs from the model's power-up value, for unusual modules.
struct SensorRegisterOverride {
  std::uint8_t Register = 0;
  std::uint16_t Value = 0;
  std::uint8_t Page = 0;  ///< 16-bit sensors only
};

/// A sensor as seen on its serial bus: a register file, eight bits each, or sixteen bits each in
/// pages.
class Sensor {
 public:
  explicit Sensor(SensorModel model, std::span<const SensorRegisterOverride> overrides = {});

  [[nodiscard]] SensorModel Model() const { return model_; }
  [[nodiscard]] std::uint8_t BusAddress() const;
  /// Data bytes of one bus transaction: 1 or 2.
  [[nodiscard]] std::uint8_t DataWidth() const;

  /// One read transaction. A 16-bit sensor returns the high byte and keeps the low one for register
  /// 0xF1, which returns the low byte of the last register read.
  [[nodiscard]] std::uint8_t Read(std::uint8_t address);

  /// One write transaction; an 8-bit sensor takes the low byte of `value`.
  void Write(std::uint8_t address, std::uint16_t value);

  /// Reads a register without a bus transaction.
  [[nodiscard]] std::uint16_t Peek(std::uint8_t address, std::uint8_t page = 0) const;

  /// Sets every register to its power-up value, and applies these values.
  void Reset();

  /// The stages of VGA0708's exposure registers. Other sensors have none: values take effect at
  /// once.
  [[nodiscard]] const ExposureBanks& Exposure() const { return exposure_; }
  /// A frame starts: exposure registers are latched.
  void StartFrame() { exposure_.StartFrame(); }
  /// Frames have passed without a stream: the committed values are in effect.
  void SettleExposure() { exposure_.Settle(); }

 private:
  static constexpr std::size_t kPages = 8;
  static constexpr std::size_t kRegistersPerPage = 256;

  [[nodiscard]] static std::size_t Place(std::uint8_t address, std::uint8_t page);
  [[nodiscard]] bool IsPageRegister(std::uint8_t address) const;
  [[nodiscard]] ExposureRegisters WrittenExposure() const;

  SensorModel model_;
  std::vector<SensorRegisterOverride> overrides_;
  std::array<std::uint16_t, kPages * kRegistersPerPage> registers_{};
  ExposureBanks exposure_;
  std::uint8_t page_ = 0;
  std::uint8_t lowByteOfLastRead_ = 0;
};

}  // namespace lidcam::camera_model
