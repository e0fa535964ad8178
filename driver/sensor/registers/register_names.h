#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

// Registers by the address that goes over the bus, described in docs/hardware.md. A register of
// unknown use has no name: the driver's tables have its bare address. Where a name ends in the
// register's number, the use is known and the meaning of its bits is not.

/// Registers of the bridge.
namespace BridgeRegister {
enum Address : RegisterAddress {
  PowerAndLed = 0xFF09,
  Mode = 0xFF0A,  ///< picture size and, in its low two bits, the clock divider
  EffectTint1 = 0xFF0B,
  EffectTint2 = 0xFF0C,
  AutomaticExposure = 0xFF0D,  ///< the sensor's own
  Contrast = 0xFF0F,
  Contrast13 = 0xFF13,
  Contrast14 = 0xFF14,
  Orientation = 0xFF26,  ///< and a bit of the contrast
  SerialAddress = 0xFF2B,
  GammaSet1 = 0xFF31,  ///< the first of 15 knots
  Effect = 0xFF42,
  Sharpness = 0xFF43,
  Scale = 0xFF5D,
  Flicker61 = 0xFF61,
  Flicker62 = 0xFF62,
  BackLight = 0xFF64,
  FlickerBand = 0xFF68,  ///< lines in half a cycle of the mains
  Flicker70 = 0xFF70,
  Brightness = 0xFF77,
  Saturation1 = 0xFF78,
  Saturation2 = 0xFF79,
  SerialDataBytes = 0xFF7E,
  LowByteLatch = 0xFF7F,  ///< low byte of the next 16-bit sensor write
  GammaSet2 = 0xFF81,
  GammaSet3 = 0xFF91,
};
}  // namespace BridgeRegister

// BridgeRegister::PowerAndLed
inline constexpr std::uint32_t kStandbyBit = 0x01;
inline constexpr std::uint32_t kPowerBit = 0x02;
inline constexpr std::uint32_t kLedBit = 0x10;

// BridgeRegister::Mode
inline constexpr std::uint32_t kClockDividerBits = 0x03;

// BridgeRegister::AutomaticExposure, on VGA0408
inline constexpr std::uint32_t kAutomaticExposureOnBits = 0x03;
inline constexpr std::uint32_t kAutomaticExposureBits = 0x07;

// BridgeRegister::Orientation
inline constexpr std::uint32_t kContrastBit = 0x01;
inline constexpr std::uint32_t kOrientationBits = 0x30;

// BridgeRegister::Effect
inline constexpr std::uint32_t kMonochromeBit = 0x40;

// BridgeRegister::Scale
inline constexpr std::uint8_t kFullScale = 0x00;
inline constexpr std::uint8_t kReducedScale = 0x80;  ///< for pictures below the full VGA size

// BridgeRegister::BackLight, and the registers of the sensors that have the bit instead
inline constexpr std::uint32_t kBackLightBit = 0x08;
inline constexpr std::uint32_t kFlickerWithAutoExposureBit = 0x80;

/// Registers of the sensors. Each name belongs to one layout: that of VGA0408 and VGA0708, that of the OV
/// family with VGA7648, or that of the sensors with 16-bit registers in pages.
namespace SensorRegister {
enum Address : RegisterAddress {
  // VGA0408 and VGA0708
  VgaIdentity = 0xFF02,
  VgaExposureHigh = 0xFF03,  ///< lines
  VgaExposureLow = 0xFF04,
  Vga0708FrameLength = 0xFF09,
  VgaOrientation = 0xFF0C,
  VgaLineTimeHigh = 0xFF13,  ///< pixel clocks of a line beyond the shortest, 12 bits
  VgaLineTimeLow = 0xFF14,
  Vga0708Flicker1A = 0xFF1A,
  Vga0708BackLight = 0xFF49,
  Vga0708FineGain = 0xFF5D,
  Vga0708CoarseGain = 0xFF60,

  // OV7660, OV7663, OV7670 and VGA7648
  OvExposureLow = 0xFF04,  ///< bits 0 and 1 of the lines
  OvProduct = 0xFF0A,
  OvVersion = 0xFF0B,
  OvExposure = 0xFF10,  ///< bits 2 to 9 of the lines
  OvReset = 0xFF12,     ///< in bit 7
  OvAutomatics = 0xFF13,
  OvRevision = 0xFF29,
  Vga7648Exposure2A = 0xFF2A,
  Vga7648Exposure2B = 0xFF2B,
  OvFlicker3B = 0xFF3B,
  OvFlicker42 = 0xFF42,
  Vga7648ExposureLow = 0xFF76,  ///< bits 0 and 1 of the lines

  // K82 and Mi1318
  WideIdentity = 0xFF00,
  K82Page = 0xFF01,
  WideAutomatics = 0xFF06,  ///< page 1: automatic exposure and backlight compensation
  Mi1318Exposure = 0xFF09,  ///< page 0: lines
  K82Flicker37 = 0xFF37,    ///< page 1
  WideFlicker5B = 0xFF5B,   ///< page 1 on K82, 2 on Mi1318
  Mi1318Page = 0xFFF0,
  LowByteOfLastRead = 0xFFF1,

  // All: ends a change of the mode or, on VGA0708, of the exposure
  Commit = 0xFF2F,
};
}  // namespace SensorRegister

// SensorRegister::VgaOrientation
inline constexpr std::uint8_t kSensorUnmirroredBit = 0x20;
inline constexpr std::uint8_t kSensorUprightBit = 0x40;

// SensorRegister::OvReset
inline constexpr std::uint8_t kOvResetBit = 0x80;

// SensorRegister::WideAutomatics, in its high byte
inline constexpr std::uint32_t kMi1318AutomaticExposureBit = 0x40;

// SensorRegister::Commit
inline constexpr std::uint8_t kCommitExposure = 0x83;
inline constexpr std::uint8_t kCommitMode = 0x85;

/// The number of a register, as set files and shadows count it.
constexpr std::uint8_t RegisterNumberOf(RegisterAddress address) {
  return static_cast<std::uint8_t>(address & 0xFF);
}

}  // namespace lidcam
