#include "tests/driver/core/base/kernel_call_hooks.h"

#include <atomic>

namespace lidcam::test {
namespace {

std::atomic<KernelCallHooks*> g_hooks = nullptr;

}  // namespace

KernelCallHooks::KernelCallHooks() {
  g_hooks = this;
}

KernelCallHooks::~KernelCallHooks() {
  g_hooks = nullptr;
}

}  // namespace lidcam::test

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

PVOID NTAPI __real_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
void NTAPI __real_ExFreePool(PVOID memory);
void NTAPI __wrap_ExFreePool(PVOID memory);
NTSTATUS NTAPI __real_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout);
NTSTATUS NTAPI __wrap_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout);

PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag) {
  PVOID const memory = __real_ExAllocatePoolWithTag(type, size, tag);
  lidcam::test::KernelCallHooks* const hooks = lidcam::test::g_hooks;
  if (hooks != nullptr && hooks->OnAllocate) hooks->OnAllocate(memory, size);
  return memory;
}

void NTAPI __wrap_ExFreePool(PVOID memory) {
  lidcam::test::KernelCallHooks* const hooks = lidcam::test::g_hooks;
  if (hooks != nullptr && hooks->OnFree) hooks->OnFree(memory);
  __real_ExFreePool(memory);
}

NTSTATUS NTAPI __wrap_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout) {
  lidcam::test::KernelCallHooks* const hooks = lidcam::test::g_hooks;
  if (hooks != nullptr && hooks->OnWait) {
    lidcam::test::WaitCall call{object, reason, mode, alertable, std::nullopt};
    if (timeout != nullptr) call.Timeout = timeout->QuadPart;
    const std::optional<NTSTATUS> status = hooks->OnWait(call);
    if (status) return *status;
  }
  return __real_KeWaitForSingleObject(object, reason, mode, alertable, timeout);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
