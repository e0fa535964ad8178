#include <memory>
#include <mutex>

#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

NTSTATUS ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK, POBJECT_TYPE, KPROCESSOR_MODE,
                                   PVOID* object, POBJECT_HANDLE_INFORMATION) {
  const CallRule& rule = calls::kObReferenceObjectByHandle;
  EnterKernelCall(rule, handle);
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  const std::shared_ptr<HandleObject> found = FindHandle(handle);
  if (found == nullptr) return STATUS_INVALID_HANDLE;
  *object = found->Reference();
  return *object != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

LONG_PTR ObfDereferenceObject(PVOID object) {
  const CallRule& rule = calls::kObfDereferenceObject;
  const Thread& self = EnterKernelCall(rule, object);
  if (*static_cast<const CSHORT*>(object) == IO_TYPE_FILE) return DereferenceFileObject(object);
  ExpectObject(rule.Name, ObjectKind::Thread, object);
  Thread& thread = *static_cast<PKTHREAD>(object)->Host;
  std::unique_lock guard(self.World.Lock());
  if (thread.References == 1 && thread.Object.Header.SignalState == 0) {
    guard.unlock();
    ReportViolation(rule.Name, DescribeObject("thread", object) + " has no reference left to drop");
  }
  return DereferenceThread(thread);
}
