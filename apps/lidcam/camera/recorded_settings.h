#pragma once

#include "bus/capture/replay/capture_bus.h"

namespace lidcam::app {

/// Gives a recorded camera those settings of the recorded host on which frames the exposure control
/// leaves out: whether and by whom the picture is exposed. A capture tells them by its register
/// accesses: the settings are those with which the driver brings the camera up by the same ones.
///
/// The camera's key in the registry has them from here on, which is to be one that is not kept. A
/// capture that does not tell leaves the default settings. The bus is as new then.
void AdoptRecordedSettings(bus::CaptureBus& bus);

}  // namespace lidcam::app
