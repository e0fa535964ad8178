#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

void KeInitializeTimer(PKTIMER timer) {
  KeInitializeTimerEx(timer, NotificationTimer);
}

void KeInitializeTimerEx(PKTIMER timer, TIMER_TYPE type) {
  const CallRule& rule = calls::kKeInitializeTimerEx;
  EnterKernelCall(rule, timer);
  const UCHAR kind = type == NotificationTimer ? kNotificationTimerType : kSynchronizationTimerType;
  KTIMER fresh{};
  InitializeHeader(fresh.Header, kind, sizeof(KTIMER), 0);
  fresh.Header.WaitListHead = {&timer->Header.WaitListHead, &timer->Header.WaitListHead};
  *timer = fresh;
  RegisterObject(rule.Name, ObjectKind::Timer, timer, sizeof(*timer));
}

BOOLEAN KeSetTimer(PKTIMER timer, LARGE_INTEGER dueTime, PKDPC dpc) {
  return KeSetTimerEx(timer, dueTime, 0, dpc);
}

BOOLEAN KeSetTimerEx(PKTIMER timer, LARGE_INTEGER dueTime, LONG period, PKDPC dpc) {
  const CallRule& rule = calls::kKeSetTimerEx;
  Thread& self = EnterKernelCall(rule, timer);
  const PreemptionBehind behind(rule.Name, timer);
  ExpectObject(rule.Name, ObjectKind::Timer, timer);
  if (dpc != nullptr) ExpectObject(rule.Name, ObjectKind::Dpc, dpc);
  const std::lock_guard guard(self.World.Lock());
  timer->Dpc = dpc;
  timer->Period = static_cast<ULONG>(period);
  const bool wasSet = SetTimer(self.World, timer, DueTime(self.World, dueTime));
  ExpireTimers(self.World);
  return wasSet ? TRUE : FALSE;
}

BOOLEAN KeCancelTimer(PKTIMER timer) {
  const CallRule& rule = calls::kKeCancelTimer;
  Thread& self = EnterKernelCall(rule, timer);
  const PreemptionBehind behind(rule.Name, timer);
  ExpectObject(rule.Name, ObjectKind::Timer, timer);
  const std::lock_guard guard(self.World.Lock());
  const bool wasSet = self.World.Timers().Remove(timer);
  timer->Header.Inserted = FALSE;
  SetObjectInUse(timer, nullptr);
  return wasSet ? TRUE : FALSE;
}
