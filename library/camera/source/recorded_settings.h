#pragma once

#include <string>

#include "bus/capture/replay/capture_bus.h"

namespace lidcam::app {

/// Gives a recorded camera the recorded host's settings that determine which frames the exposure
/// control discards: whether the loop runs, and with which options. They are found by a capture's
/// register accesses: with these settings the driver's bring-up makes the same ones.
///
/// They are stored in the camera's registry key, which must be one that is not saved. If the
/// capture doesn't determine them, the default settings stay. The bus is reset to its start.
///
/// @param driverKey  empty: the key of the camera's identity
/// @return false if the capture doesn't contain the whole bring-up: a descriptor or a register is read
///         to which it has no answer, as when it began later
[[nodiscard]] bool AdoptRecordedSettings(bus::CaptureBus& bus,
                                         const std::u16string& driverKey = {});

}  // namespace lidcam::app
