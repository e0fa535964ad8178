// Compiled like the driver: without exceptions.

#include "tests/platform/nt/objects/terminating_thread.h"

namespace lidcam::host {
namespace {

[[noreturn]] void EndFromBelow(TerminatingThread& thread) {
  KeSetEvent(&thread.Ending, 0, FALSE);
  PsTerminateSystemThread(STATUS_SUCCESS);
  __builtin_trap();
}

}  // namespace

void NTAPI RunTerminatingThread(PVOID context) {
  auto& thread = *static_cast<TerminatingThread*>(context);
  KeSetPriorityThread(KeGetCurrentThread(), 16);
  EndFromBelow(thread);
}

}  // namespace lidcam::host
