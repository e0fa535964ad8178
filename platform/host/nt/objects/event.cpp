#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

LONG ResetEvent(const CallRule& rule, PRKEVENT event) {
  Thread& self = EnterKernelCall(rule, event);
  ExpectObject(rule.Name, ObjectKind::Event, event);
  const std::lock_guard guard(self.World.Lock());
  const LONG before = event->Header.SignalState;
  event->Header.SignalState = 0;
  return before;
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

void KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN state) {
  EnterKernelCall(calls::kKeInitializeEvent, event);
  InitializeHeader(event->Header, static_cast<UCHAR>(type), sizeof(KEVENT), state != FALSE ? 1 : 0);
  RegisterObject(calls::kKeInitializeEvent.Name, ObjectKind::Event, event, sizeof(*event));
}

LONG KeSetEvent(PRKEVENT event, KPRIORITY, BOOLEAN) {
  Thread& self = EnterKernelCall(calls::kKeSetEvent, event);
  const PreemptionBehind behind(calls::kKeSetEvent.Name, event);
  ExpectObject(calls::kKeSetEvent.Name, ObjectKind::Event, event);
  const std::lock_guard guard(self.World.Lock());
  const LONG before = event->Header.SignalState;
  event->Header.SignalState = 1;
  WakeWaiters(event->Header);
  return before;
}

void KeClearEvent(PRKEVENT event) {
  ResetEvent(calls::kKeClearEvent, event);
}

LONG KeResetEvent(PRKEVENT event) {
  return ResetEvent(calls::kKeResetEvent, event);
}

LONG KeReadStateEvent(PRKEVENT event) {
  Thread& self = EnterKernelCall(calls::kKeReadStateEvent, event);
  ExpectObject(calls::kKeReadStateEvent.Name, ObjectKind::Event, event);
  const std::lock_guard guard(self.World.Lock());
  return event->Header.SignalState;
}
