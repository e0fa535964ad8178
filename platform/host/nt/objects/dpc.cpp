#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

void KeInitializeDpc(PRKDPC dpc, PKDEFERRED_ROUTINE routine, PVOID context) {
  constexpr UCHAR kDpcType = 19;
  constexpr UCHAR kMediumImportance = 1;
  const CallRule& rule = calls::kKeInitializeDpc;
  EnterKernelCall(rule, dpc);
  RegisterObject(rule.Name, ObjectKind::Dpc, dpc, sizeof(*dpc));
  dpc->Type = kDpcType;
  dpc->Importance = kMediumImportance;
  dpc->Number = 0;
  dpc->DpcListEntry = {};
  dpc->DeferredRoutine = routine;
  dpc->DeferredContext = context;
  dpc->SystemArgument1 = nullptr;
  dpc->SystemArgument2 = nullptr;
  dpc->DpcData = nullptr;
}

BOOLEAN KeInsertQueueDpc(PRKDPC dpc, PVOID argument1, PVOID argument2) {
  const CallRule& rule = calls::kKeInsertQueueDpc;
  Thread& self = EnterKernelCall(rule, dpc);
  const PreemptionBehind behind(rule.Name, dpc);
  ExpectObject(rule.Name, ObjectKind::Dpc, dpc);
  const std::lock_guard guard(self.World.Lock());
  return QueueDeferredCall(self.World, dpc, argument1, argument2) ? TRUE : FALSE;
}
