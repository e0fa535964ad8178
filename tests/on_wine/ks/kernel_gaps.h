#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Gives a driver's image what its kernel lacks, in place of what it imports: the image in memory is
/// changed, never its file. Passive level, before anything else of the driver runs.
void FillKernelGaps(PDRIVER_OBJECT driver);

/// Frees what IoAllocateDriverObjectExtension() has given for a driver that goes.
void FreeDriverExtensions(PDRIVER_OBJECT driver);

}  // namespace lidcam::wine
