#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

// The class's mutexes: a device's, and filters' control mutexes. Their owner may acquire them
// again. Passive level.

void InitializeMutex(KMUTEX& mutex);
void AcquireMutex(KMUTEX& mutex);
void ReleaseMutex(KMUTEX& mutex);

/// Number of exceptions that unwind the calling thread. A simulated world that stops unwinds its
/// threads; locks are not released then.
int Unwindings();

}  // namespace lidcam::host
