#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

// Properties that every filter has, after the driver's own sets.

extern const KSAUTOMATION_TABLE kFilterTable;     ///< topology and general
extern const KSAUTOMATION_TABLE kFilterPinTable;  ///< kPinPropertySet

}  // namespace lidcam::host
