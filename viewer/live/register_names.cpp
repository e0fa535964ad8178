#include "viewer/live/register_names.h"

#include <algorithm>
#include <array>
#include <string>

#include "driver/sensor/registers/register_names.h"

namespace lidcam::viewer {
namespace {

// A bit for each sensor: a name belongs to the layout of some of them.
enum Sensors : unsigned {
  kVga0408 = 1U << 0,
  kVga0708 = 1U << 1,
  kOv7660 = 1U << 2,
  kOv7663 = 1U << 3,
  kOv7670 = 1U << 4,
  kVga7648 = 1U << 5,
  kK82 = 1U << 6,
  kMi1318 = 1U << 7,
  kVga = kVga0408 | kVga0708,
  kOv = kOv7660 | kOv7663 | kOv7670 | kVga7648,
  kWide = kK82 | kMi1318,
  kAll = kVga | kOv | kWide,
};

struct SensorName {
  std::string_view Name;
  unsigned Bit;
};

constexpr SensorName kSensors[] = {
    {"VGA0408", kVga0408}, {"VGA0708", kVga0708}, {"OV7660", kOv7660}, {"OV7663", kOv7663},
    {"OV7670", kOv7670},   {"VGA7648", kVga7648}, {"K82", kK82},       {"Mi1318", kMi1318},
};

struct BridgeRow {
  std::uint16_t Address;
  std::string_view Name;
};

constexpr BridgeRow kBridgeRows[] = {
    {BridgeRegister::PowerAndLed, "PowerAndLed"},
    {BridgeRegister::Mode, "Mode"},
    {BridgeRegister::EffectTint1, "EffectTint1"},
    {BridgeRegister::EffectTint2, "EffectTint2"},
    {BridgeRegister::AutomaticExposure, "AutomaticExposure"},
    {BridgeRegister::Contrast, "Contrast"},
    {BridgeRegister::Contrast13, "Contrast13"},
    {BridgeRegister::Contrast14, "Contrast14"},
    {BridgeRegister::Orientation, "Orientation"},
    {BridgeRegister::SerialAddress, "SerialAddress"},
    {BridgeRegister::GammaSet1, "GammaSet1"},
    {BridgeRegister::Effect, "Effect"},
    {BridgeRegister::Sharpness, "Sharpness"},
    {BridgeRegister::Scale, "Scale"},
    {BridgeRegister::Flicker61, "Flicker61"},
    {BridgeRegister::Flicker62, "Flicker62"},
    {BridgeRegister::BackLight, "BackLight"},
    {BridgeRegister::FlickerBand, "FlickerBand"},
    {BridgeRegister::Flicker70, "Flicker70"},
    {BridgeRegister::Brightness, "Brightness"},
    {BridgeRegister::Saturation1, "Saturation1"},
    {BridgeRegister::Saturation2, "Saturation2"},
    {BridgeRegister::SerialDataBytes, "SerialDataBytes"},
    {BridgeRegister::LowByteLatch, "LowByteLatch"},
    {BridgeRegister::GammaSet2, "GammaSet2"},
    {BridgeRegister::GammaSet3, "GammaSet3"},
};

struct SensorRow {
  std::uint16_t Address;
  unsigned Sensors;
  std::string_view Name;
};

constexpr SensorRow kSensorRows[] = {
    {SensorRegister::VgaIdentity, kVga, "VgaIdentity"},
    {SensorRegister::VgaExposureHigh, kVga, "VgaExposureHigh"},
    {SensorRegister::VgaExposureLow, kVga, "VgaExposureLow"},
    {SensorRegister::Vga0708FrameLength, kVga0708, "Vga0708FrameLength"},
    {SensorRegister::VgaOrientation, kVga, "VgaOrientation"},
    {SensorRegister::VgaLineTimeHigh, kVga, "VgaLineTimeHigh"},
    {SensorRegister::VgaLineTimeLow, kVga, "VgaLineTimeLow"},
    {SensorRegister::Vga0708Flicker1A, kVga0708, "Vga0708Flicker1A"},
    {SensorRegister::Vga0708BackLight, kVga0708, "Vga0708BackLight"},
    {SensorRegister::Vga0708FineGain, kVga0708, "Vga0708FineGain"},
    {SensorRegister::Vga0708CoarseGain, kVga0708, "Vga0708CoarseGain"},
    {SensorRegister::OvExposureLow, kOv, "OvExposureLow"},
    {SensorRegister::OvProduct, kOv, "OvProduct"},
    {SensorRegister::OvVersion, kOv, "OvVersion"},
    {SensorRegister::OvExposure, kOv, "OvExposure"},
    {SensorRegister::OvReset, kOv, "OvReset"},
    {SensorRegister::OvAutomatics, kOv, "OvAutomatics"},
    {SensorRegister::OvRevision, kOv, "OvRevision"},
    {SensorRegister::Vga7648Exposure2A, kVga7648, "Vga7648Exposure2A"},
    {SensorRegister::Vga7648Exposure2B, kVga7648, "Vga7648Exposure2B"},
    {SensorRegister::OvFlicker3B, kOv, "OvFlicker3B"},
    {SensorRegister::OvFlicker42, kOv, "OvFlicker42"},
    {SensorRegister::Vga7648ExposureLow, kVga7648, "Vga7648ExposureLow"},
    {SensorRegister::WideIdentity, kWide, "WideIdentity"},
    {SensorRegister::K82Page, kK82, "K82Page"},
    {SensorRegister::WideAutomatics, kWide, "WideAutomatics"},
    {SensorRegister::Mi1318Exposure, kMi1318, "Mi1318Exposure"},
    {SensorRegister::K82Flicker37, kK82, "K82Flicker37"},
    {SensorRegister::WideFlicker5B, kWide, "WideFlicker5B"},
    {SensorRegister::Mi1318Page, kMi1318, "Mi1318Page"},
    {SensorRegister::LowByteOfLastRead, kWide, "LowByteOfLastRead"},
    {SensorRegister::Commit, kAll, "Commit"},
};

// A set of gamma knots has a name for its first one.
constexpr std::uint16_t kKnots = 15;
constexpr std::array<std::string_view, kKnots> kKnotsOfSet[] = {
    {"Gamma1Knot1", "Gamma1Knot2", "Gamma1Knot3", "Gamma1Knot4", "Gamma1Knot5", "Gamma1Knot6",
     "Gamma1Knot7", "Gamma1Knot8", "Gamma1Knot9", "Gamma1Knot10", "Gamma1Knot11", "Gamma1Knot12",
     "Gamma1Knot13", "Gamma1Knot14", "Gamma1Knot15"},
    {"Gamma2Knot1", "Gamma2Knot2", "Gamma2Knot3", "Gamma2Knot4", "Gamma2Knot5", "Gamma2Knot6",
     "Gamma2Knot7", "Gamma2Knot8", "Gamma2Knot9", "Gamma2Knot10", "Gamma2Knot11", "Gamma2Knot12",
     "Gamma2Knot13", "Gamma2Knot14", "Gamma2Knot15"},
    {"Gamma3Knot1", "Gamma3Knot2", "Gamma3Knot3", "Gamma3Knot4", "Gamma3Knot5", "Gamma3Knot6",
     "Gamma3Knot7", "Gamma3Knot8", "Gamma3Knot9", "Gamma3Knot10", "Gamma3Knot11", "Gamma3Knot12",
     "Gamma3Knot13", "Gamma3Knot14", "Gamma3Knot15"},
};
constexpr std::uint16_t kGammaSets[] = {BridgeRegister::GammaSet1, BridgeRegister::GammaSet2,
                                        BridgeRegister::GammaSet3};

std::string_view NameOfKnot(std::uint16_t address) {
  for (std::size_t set = 0; set < std::size(kGammaSets); ++set) {
    const int knot = address - kGammaSets[set];
    if (knot >= 0 && knot < kKnots) return kKnotsOfSet[set][static_cast<std::size_t>(knot)];
  }
  return {};
}

std::string_view NameOfBridgeRegister(std::uint16_t address) {
  if (const std::string_view knot = NameOfKnot(address); !knot.empty()) return knot;
  const auto* const row = std::ranges::find(kBridgeRows, address, &BridgeRow::Address);
  return row == std::end(kBridgeRows) ? std::string_view() : row->Name;
}

}  // namespace

std::string_view NameOfRegister(RegisterChip chip, std::uint16_t address, std::string_view sensor) {
  if (chip == RegisterChip::Bridge) return NameOfBridgeRegister(address);
  const auto* const fitted = std::ranges::find(kSensors, sensor, &SensorName::Name);
  if (fitted == std::end(kSensors)) return {};
  for (const SensorRow& row : kSensorRows) {
    if (row.Address == address && (row.Sensors & fitted->Bit) != 0) return row.Name;
  }
  return {};
}

}  // namespace lidcam::viewer
