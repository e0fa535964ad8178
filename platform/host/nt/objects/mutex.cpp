#include <vector>

#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

void KeInitializeMutex(PRKMUTEX mutex, ULONG) {
  const CallRule& rule = calls::kKeInitializeMutex;
  EnterKernelCall(rule, mutex);
  InitializeHeader(mutex->Header, kMutexType, sizeof(KMUTEX), 1);
  mutex->MutantListEntry = {};
  mutex->OwnerThread = nullptr;
  mutex->Abandoned = FALSE;
  mutex->ApcDisable = 1;
  ForgetLockOrder(mutex);
  RegisterObject(rule.Name, ObjectKind::Mutex, mutex, sizeof(*mutex));
}

LONG KeReleaseMutex(PRKMUTEX mutex, BOOLEAN) {
  const CallRule& rule = calls::kKeReleaseMutex;
  Thread& self = EnterKernelCall(rule, mutex);
  const PreemptionBehind behind(rule.Name, mutex);
  ExpectObject(rule.Name, ObjectKind::Mutex, mutex);
  std::unique_lock guard(self.World.Lock());
  if (mutex->OwnerThread != &self.Object) {
    guard.unlock();
    ReportViolation(rule.Name, DescribeObject("mutex", mutex) + " isn't owned by this thread");
  }
  const LONG before = mutex->Header.SignalState++;
  if (mutex->Header.SignalState != 1) return before;
  mutex->OwnerThread = nullptr;
  std::erase(self.Held, mutex);
  SetObjectInUse(mutex, nullptr);
  WakeWaiters(mutex->Header);
  return before;
}
