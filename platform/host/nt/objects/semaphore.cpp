#include <string>
#include <vector>

#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

void KeInitializeSemaphore(PRKSEMAPHORE semaphore, LONG count, LONG limit) {
  const CallRule& rule = calls::kKeInitializeSemaphore;
  EnterKernelCall(rule, semaphore);
  if (limit <= 0 || count < 0 || count > limit) {
    ReportViolation(rule.Name, DescribeObject("semaphore", semaphore) + " with count " +
                                   std::to_string(count) + " and limit " + std::to_string(limit));
  }
  InitializeHeader(semaphore->Header, kSemaphoreType, sizeof(KSEMAPHORE), count);
  semaphore->Limit = limit;
  MarkAsLock(*semaphore, count == 1 && limit == 1);
  ForgetLockOrder(semaphore);
  RegisterObject(rule.Name, ObjectKind::Semaphore, semaphore, sizeof(*semaphore));
}

LONG KeReleaseSemaphore(PRKSEMAPHORE semaphore, KPRIORITY, LONG adjustment, BOOLEAN) {
  const CallRule& rule = calls::kKeReleaseSemaphore;
  Thread& self = EnterKernelCall(rule, semaphore);
  const PreemptionBehind behind(rule.Name, semaphore);
  ExpectObject(rule.Name, ObjectKind::Semaphore, semaphore);
  std::unique_lock guard(self.World.Lock());
  const LONG before = semaphore->Header.SignalState;
  if (adjustment <= 0 || adjustment > semaphore->Limit - before) {
    guard.unlock();
    ReportViolation(rule.Name, DescribeObject("semaphore", semaphore) + " with count " +
                                   std::to_string(before) + " is released by " +
                                   std::to_string(adjustment) + " over its limit");
  }
  semaphore->Header.SignalState += adjustment;
  if (IsLock(semaphore->Header)) std::erase(self.Held, semaphore);
  WakeWaiters(semaphore->Header);
  return before;
}
