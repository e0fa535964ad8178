#include "driver/sensor/modes/setup_registers.h"

#include <cstdint>

#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/registers/register_access.h"

namespace lidcam {
namespace {

// The order in which the stored picture settings go to the hardware. Effect comes last and replaces
// the register that ColorEnable has written.
constexpr std::uint32_t kReplayedSteps[] = {
    ImageControlBrightness, ImageControlContrast,  ImageControlGamma,       ImageControlSaturation,
    ImageControlBackLight,  ImageControlSharpness, ImageControlColorEnable, ImageControlMirror,
    ImageControlVertical,   ImageControlExposure,  ImageControlEffect,
};

void WriteEntry(CameraContext& context, const RegisterSetEntry& entry) {
  const RegisterAddress address = RegisterAddressOf(entry.Register);
  if (entry.Marker == kSensorEntryMarker) {
    WriteSensorRegister(context, address, entry.Value);
  } else if (entry.Marker == kBridgeEntryMarker) {
    WriteBridgeRegister(context, address, entry.Value);
  }
}

// A full table is written, unlike a full list; entries of a file beyond the table were not stored.
void WriteTable(CameraContext& context, const RegisterSetTable& table) {
  if (table.Present == 0) return;
  for (std::uint32_t i = 0; i < table.Count && i < kRegisterSetCapacity; ++i) {
    WriteEntry(context, table.Entries[i]);
  }
}

}  // namespace

void ApplySetupRegisters(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  WriteTable(context, context.SetupRegisters);
  for (const std::uint32_t step : kReplayedSteps) ApplyImageControl(step, context);
}

}  // namespace lidcam
