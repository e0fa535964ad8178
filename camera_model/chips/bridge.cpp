#include "camera_model/chips/bridge.h"

namespace lidcam::camera_model {
namespace {

struct PowerUpRow {
  std::uint8_t Register;
  std::uint8_t Value;
};

constexpr PowerUpRow kPowerUp[] = {
    {0x09, 0x02},  // sensor running, LED off
    {0x0A, 0x00},  // whole picture, undivided clock
    {0x0D, 0x3B},  // automatic exposure of the bridge
    {0x0F, 0x80},  // contrast 1.0
    {0x13, 0xA0},  // contrast of the shadows 1.0
    {0x14, 0xD0},  // contrast of the highlights 1.0
    {0x26, 0x20},  // colour phase of a picture read upright and unmirrored
    {0x2B, 0x42},  // serial address of the 8-bit sensors
    {0x43, 0x40},  // sharpening on, strength 0
    {0x68, 0x96},  // lines in a half cycle of the mains
    {0x78, 0xA0},  // saturation 1.0, blue difference
    {0x79, 0xA0},  // saturation 1.0, red difference
    {0x7E, 0x01},  // one data byte in a serial transaction
};

// Exponent 0.45 at the levels 2, 4, 8, 12, 16, 24, 32, 40, 48, 64, 80, 96, 128, 160 and 192: the
// inverse of a screen's curve.
constexpr std::uint8_t kPowerUpGamma[] = {28,  39,  53,  64,  73,  88,  100, 111,
                                          120, 137, 151, 164, 187, 207, 224};
constexpr std::uint8_t kGammaBanks[] = {0x31, 0x81, 0x91};

constexpr std::uint16_t kSelectRegister = 0xFFFF;
constexpr std::uint8_t kIdleBus = 0xFF;

}  // namespace

Bridge::Bridge(Sensor& sensor, BridgeOptions options) : sensor_(sensor), options_(options) {
  PowerUp();
}

void Bridge::PowerUp() {
  registers_.fill(0);
  select_ = 0;
  for (const PowerUpRow& row : kPowerUp) registers_[row.Register] = row.Value;
  for (const std::uint8_t bank : kGammaBanks) {
    for (std::size_t knot = 0; knot < std::size(kPowerUpGamma); ++knot) {
      registers_[bank + knot] = kPowerUpGamma[knot];
    }
  }
  sensor_.Reset();
}

std::optional<std::uint32_t> Bridge::VendorRequest(const bus::SetupPacket& setup,
                                                   std::span<std::uint8_t> data) {
  if (setup.Index < 0xFF00) return std::nullopt;
  const auto address = static_cast<std::uint8_t>(setup.Index & 0xFF);
  if (setup.RequestType == 0x40 && setup.Request == 0xA0 && setup.Length == 0) {
    if (setup.Index == kSelectRegister) {
      select_ = setup.Value;
    } else {
      WriteSelected(address, static_cast<std::uint8_t>(setup.Value & 0xFF));
    }
    return 0;
  }
  const bool isRead = setup.RequestType == 0xC0 && setup.Request == 0xA1 && setup.Length == 1;
  if (!isRead || setup.Index == kSelectRegister || data.empty()) return std::nullopt;
  data[0] = ReadSelected(address);
  return 1;
}

bool Bridge::SensorAnswers() const {
  if (options_.SensorNeedsPowerBit2Clear && (registers_[0x09] & 0x04) != 0) return false;
  return registers_[0x2B] == sensor_.BusAddress() && registers_[0x7E] == sensor_.DataWidth();
}

void Bridge::WriteSelected(std::uint8_t address, std::uint8_t value) {
  if (select_ <= 1) {
    registers_[address] = value;
  } else if (SensorSelected() && SensorAnswers()) {
    const bool isWide = sensor_.DataWidth() == 2;
    sensor_.Write(address, isWide ? static_cast<std::uint16_t>(value << 8 | registers_[0x7F])
                                  : std::uint16_t{value});
  }
}

std::uint8_t Bridge::ReadSelected(std::uint8_t address) {
  if (select_ <= 1) return registers_[address];
  return SensorSelected() && SensorAnswers() ? sensor_.Read(address) : kIdleBus;
}

}  // namespace lidcam::camera_model
