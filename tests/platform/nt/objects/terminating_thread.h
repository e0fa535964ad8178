#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// Context of RunTerminatingThread().
struct TerminatingThread {
  KEVENT Ending;
};

/// A start routine that never returns: it ends its thread from inside another function.
void NTAPI RunTerminatingThread(PVOID context);

}  // namespace lidcam::host
