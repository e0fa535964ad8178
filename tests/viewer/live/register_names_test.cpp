#include "viewer/live/register_names.h"

#include <gtest/gtest.h>

namespace lidcam::viewer {
namespace {

struct NamedRegister {
  RegisterChip Chip;
  std::uint16_t Address;
  const char* Sensor;
  const char* Name;
};

// From docs/hardware.md.
TEST(RegisterNames, AreThoseOfTheSensorThatIsFitted) {
  const NamedRegister registers[] = {
      {RegisterChip::Bridge, 0xFF0A, "VGA0708", "Mode"},
      {RegisterChip::Bridge, 0xFF77, "K82", "Brightness"},
      {RegisterChip::Bridge, 0xFF31, "VGA0708", "Gamma1Knot1"},
      {RegisterChip::Bridge, 0xFF3F, "VGA0708", "Gamma1Knot15"},
      {RegisterChip::Bridge, 0xFF91, "VGA0708", "Gamma3Knot1"},
      {RegisterChip::Bridge, 0xFF40, "VGA0708", ""},
      {RegisterChip::Sensor, 0xFF60, "VGA0708", "Vga0708CoarseGain"},
      {RegisterChip::Sensor, 0xFF60, "VGA0408", ""},
      {RegisterChip::Sensor, 0xFF04, "VGA0408", "VgaExposureLow"},
      {RegisterChip::Sensor, 0xFF04, "OV7670", "OvExposureLow"},
      {RegisterChip::Sensor, 0xFF09, "Mi1318", "Mi1318Exposure"},
      {RegisterChip::Sensor, 0xFF09, "VGA0708", "Vga0708FrameLength"},
      {RegisterChip::Sensor, 0xFF2F, "K82", "Commit"},
      {RegisterChip::Sensor, 0xFF2F, "", ""},
  };
  for (const NamedRegister& named : registers) {
    EXPECT_EQ(NameOfRegister(named.Chip, named.Address, named.Sensor), named.Name)
        << std::hex << named.Address << " of " << named.Sensor;
  }
}

}  // namespace
}  // namespace lidcam::viewer
