#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

// What every filter answers by itself, behind the driver's own sets.

extern const KSAUTOMATION_TABLE kFilterTable;     ///< topology and general
extern const KSAUTOMATION_TABLE kFilterPinTable;  ///< kPinPropertySet

}  // namespace lidcam::host
