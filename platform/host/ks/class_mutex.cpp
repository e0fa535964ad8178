#include "platform/host/ks/class_mutex.h"

namespace lidcam::host {

void InitializeMutex(KMUTEX& mutex) {
  KeInitializeMutex(&mutex, 0);
}

void AcquireMutex(KMUTEX& mutex) {
  KeWaitForSingleObject(&mutex, Executive, KernelMode, FALSE, nullptr);
}

void ReleaseMutex(KMUTEX& mutex) {
  KeReleaseMutex(&mutex, FALSE);
}

}  // namespace lidcam::host
