#include "platform/host/nt/processor/floating_point_state.h"

#include <mutex>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/verifier/kernel_faults.h"

namespace lidcam::host {
namespace {

constinit std::mutex g_lock;
constinit FloatingPointUse g_use;
constinit std::uint32_t g_failCountdown = 0;

}  // namespace

FloatingPointUse FloatingPointUseSoFar() {
  const std::lock_guard guard(g_lock);
  return g_use;
}

void FailFloatingPointSave(std::uint32_t countdown) {
  const std::lock_guard guard(g_lock);
  g_failCountdown = countdown;
}

}  // namespace lidcam::host

// User mode preserves every thread's registers anyway.
NTSTATUS KeSaveFloatingPointState(PKFLOATING_SAVE state) {
  const auto& rule = lidcam::host::calls::kKeSaveFloatingPointState;
  lidcam::host::EnterKernelCall(rule, state);
  if (const auto fault = lidcam::host::KernelCallFault(rule.Name)) return *fault;
  const std::lock_guard guard(lidcam::host::g_lock);
  if (lidcam::host::g_failCountdown != 0 && --lidcam::host::g_failCountdown == 0) {
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  *state = {};
  ++lidcam::host::g_use.Saves;
  return STATUS_SUCCESS;
}

NTSTATUS KeRestoreFloatingPointState(PKFLOATING_SAVE state) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kKeRestoreFloatingPointState, state);
  const std::lock_guard guard(lidcam::host::g_lock);
  ++lidcam::host::g_use.Restores;
  return STATUS_SUCCESS;
}
