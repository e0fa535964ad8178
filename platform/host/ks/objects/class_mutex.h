#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

// The mutexes of the class: a device's, and those of filters' controls. Their holder may take them
// again. Passive level.

void InitializeMutex(KMUTEX& mutex);
void AcquireMutex(KMUTEX& mutex);
void ReleaseMutex(KMUTEX& mutex);

/// How many exceptions unwind the calling thread. A simulated world that stops unwinds its threads, and
/// lets go of nothing then.
int Unwindings();

}  // namespace lidcam::host
