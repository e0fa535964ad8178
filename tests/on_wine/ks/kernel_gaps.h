#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Replaces imports of a driver's image that its kernel lacks: changes the image in memory, never
/// its file. Passive level, before any other code of the driver runs.
void FillKernelGaps(PDRIVER_OBJECT driver);

/// Frees the memory of IoAllocateDriverObjectExtension() for a driver that is unloaded.
void FreeDriverExtensions(PDRIVER_OBJECT driver);

}  // namespace lidcam::wine
