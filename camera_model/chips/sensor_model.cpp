#include "camera_model/chips/sensor_model.h"

#include <algorithm>

namespace lidcam::camera_model {
namespace {

struct ModelRow {
  SensorModel Model;
  std::string_view Name;
  std::uint8_t BusAddress;
  std::uint8_t DataWidth;
};

constexpr ModelRow kModels[] = {
    {SensorModel::VGA0408, "VGA0408", 0x42, 1}, {SensorModel::Reserved3, "Reserved3", 0x42, 1},
    {SensorModel::VGA7648, "VGA7648", 0x42, 1}, {SensorModel::K82, "K82", 0xBA, 2},
    {SensorModel::OV7660, "OV7660", 0x42, 1},   {SensorModel::OV7663, "OV7663", 0x42, 1},
    {SensorModel::VGA0708, "VGA0708", 0x42, 1}, {SensorModel::Mi1318, "Mi1318", 0xBA, 2},
    {SensorModel::OV7670, "OV7670", 0x42, 1},
};

const ModelRow& RowOf(SensorModel model) {
  return *std::find_if(std::begin(kModels), std::end(kModels),
                       [model](const ModelRow& row) { return row.Model == model; });
}

struct SensorPowerUpRow {
  SensorModel Model;
  std::uint8_t Page;
  std::uint8_t Register;
  std::uint16_t Value;
};

constexpr SensorPowerUpRow kSensorPowerUp[] = {
    // Identity in 0x02. Exposure 522 lines in 0x03 and 0x04, three half cycles of 50 Hz light.
    // 0x0C: read upright and unmirrored. 0x5D and 0x60: fine and coarse gain.
    {SensorModel::VGA0708, 0, 0x02, 0x15},
    {SensorModel::VGA0708, 0, 0x03, 0x02},
    {SensorModel::VGA0708, 0, 0x04, 0x0A},
    {SensorModel::VGA0708, 0, 0x09, 0x2F},
    {SensorModel::VGA0708, 0, 0x0C, 0x60},
    {SensorModel::VGA0708, 0, 0x49, 0x08},
    {SensorModel::VGA0708, 0, 0x5D, 0x9C},
    {SensorModel::VGA0708, 0, 0x60, 0x01},
    {SensorModel::VGA0408, 0, 0x02, 0x10},
    {SensorModel::VGA0408, 0, 0x03, 0x02},
    {SensorModel::VGA0408, 0, 0x04, 0x0A},
    {SensorModel::VGA0408, 0, 0x0C, 0x60},
    // Product in 0x0A, version in 0x0B, variant in 0x29. Exposure in 0x10 and the low two bits of
    // 0x04 (0x76 on VGA7648). 0x13: automatic exposure on.
    {SensorModel::OV7660, 0, 0x0A, 0x76},
    {SensorModel::OV7660, 0, 0x0B, 0x60},
    {SensorModel::OV7660, 0, 0x29, 0x10},
    {SensorModel::OV7660, 0, 0x10, 0x8C},
    {SensorModel::OV7660, 0, 0x04, 0x01},
    {SensorModel::OV7660, 0, 0x13, 0xF7},
    {SensorModel::OV7663, 0, 0x0A, 0x76},
    {SensorModel::OV7663, 0, 0x0B, 0x60},
    {SensorModel::OV7663, 0, 0x29, 0x00},
    {SensorModel::OV7663, 0, 0x10, 0x8C},
    {SensorModel::OV7663, 0, 0x04, 0x01},
    {SensorModel::OV7663, 0, 0x13, 0xF7},
    {SensorModel::OV7670, 0, 0x0A, 0x76},
    {SensorModel::OV7670, 0, 0x0B, 0x73},
    {SensorModel::OV7670, 0, 0x10, 0x8C},
    {SensorModel::OV7670, 0, 0x04, 0x01},
    {SensorModel::OV7670, 0, 0x13, 0xE5},
    {SensorModel::VGA7648, 0, 0x0A, 0x76},
    {SensorModel::VGA7648, 0, 0x0B, 0x48},
    {SensorModel::VGA7648, 0, 0x10, 0x7C},
    {SensorModel::VGA7648, 0, 0x76, 0x02},
    {SensorModel::VGA7648, 0, 0x13, 0xA3},
    // Identity in page 0, register 0x00. Page 1, register 0x06: automatic exposure (bit 14), no
    // backlight compensation (bit 3). Mi1318 exposes page 0, register 0x09 lines.
    {SensorModel::Mi1318, 0, 0x00, 0x1400},
    {SensorModel::Mi1318, 0, 0x09, 477},
    {SensorModel::Mi1318, 1, 0x06, 0x401C},
    {SensorModel::K82, 0, 0x00, 0x8200},
    {SensorModel::K82, 1, 0x06, 0x400C},
};

constexpr std::uint8_t kLowByteRegister = 0xF1;
constexpr std::uint8_t kPageRegister = 0xF0;
constexpr std::uint8_t kPageRegisterOfK82 = 0x01;
constexpr std::uint8_t kCommitRegister = 0x2F;
constexpr std::uint8_t kCommitExposure = 0x83;

bool ResetsThroughRegister12(SensorModel model) {
  return model == SensorModel::OV7660 || model == SensorModel::OV7663 ||
         model == SensorModel::OV7670 || model == SensorModel::VGA7648;
}

}  // namespace

std::string_view NameOf(SensorModel model) {
  return RowOf(model).Name;
}

std::optional<SensorModel> SensorModelByName(std::string_view name) {
  for (const ModelRow& row : kModels) {
    if (row.Name == name) return row.Model;
  }
  return std::nullopt;
}

Sensor::Sensor(SensorModel model, std::span<const SensorRegisterOverride> overrides)
    : model_(model), overrides_(overrides.begin(), overrides.end()) {
  Reset();
}

std::uint8_t Sensor::BusAddress() const {
  return RowOf(model_).BusAddress;
}

std::uint8_t Sensor::DataWidth() const {
  return RowOf(model_).DataWidth;
}

std::size_t Sensor::Place(std::uint8_t address, std::uint8_t page) {
  return (page % kPages) * kRegistersPerPage + address;
}

bool Sensor::IsPageRegister(std::uint8_t address) const {
  if (DataWidth() != 2) return false;
  return address == kPageRegister || (model_ == SensorModel::K82 && address == kPageRegisterOfK82);
}

std::uint8_t Sensor::Read(std::uint8_t address) {
  if (DataWidth() == 1) return static_cast<std::uint8_t>(Peek(address));
  if (address == kLowByteRegister) return lowByteOfLastRead_;
  const std::uint16_t value = IsPageRegister(address) ? page_ : Peek(address, page_);
  lowByteOfLastRead_ = static_cast<std::uint8_t>(value & 0xFF);
  return static_cast<std::uint8_t>(value >> 8);
}

void Sensor::Write(std::uint8_t address, std::uint16_t value) {
  if (DataWidth() == 1) {
    if (ResetsThroughRegister12(model_) && address == 0x12 && (value & 0x80) != 0) {
      Reset();
      return;
    }
    registers_[Place(address, 0)] = value & 0xFF;
    const bool isCommit = address == kCommitRegister && (value & 0xFF) == kCommitExposure;
    if (isCommit && model_ == SensorModel::VGA0708) exposure_.Commit(WrittenExposure());
    return;
  }
  if (address == kLowByteRegister) return;
  if (IsPageRegister(address)) {
    page_ = static_cast<std::uint8_t>(value % kPages);
    return;
  }
  registers_[Place(address, page_)] = value;
}

std::uint16_t Sensor::Peek(std::uint8_t address, std::uint8_t page) const {
  return registers_[Place(address, page)];
}

ExposureRegisters Sensor::WrittenExposure() const {
  return {.Lines = static_cast<std::uint16_t>((Peek(0x03) & 0x0F) << 8 | Peek(0x04)),
          .CoarseGain = static_cast<std::uint8_t>(Peek(0x60)),
          .FineGain = static_cast<std::uint8_t>(Peek(0x5D)),
          .FrameLength = static_cast<std::uint8_t>(Peek(0x09))};
}

void Sensor::Reset() {
  registers_.fill(0);
  page_ = 0;
  lowByteOfLastRead_ = 0;
  for (const SensorPowerUpRow& row : kSensorPowerUp) {
    if (row.Model == model_) registers_[Place(row.Register, row.Page)] = row.Value;
  }
  for (const SensorRegisterOverride& row : overrides_) {
    registers_[Place(row.Register, row.Page)] = row.Value;
  }
  exposure_.Reset(WrittenExposure());
}

}  // namespace lidcam::camera_model
