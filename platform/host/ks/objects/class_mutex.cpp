#include "platform/host/ks/objects/class_mutex.h"

#include <exception>

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

int Unwindings() {
  return std::uncaught_exceptions();
}

}  // namespace lidcam::host
