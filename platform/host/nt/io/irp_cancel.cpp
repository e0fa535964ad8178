// Cancelling requests. One lock of the world guards all cancel routines.

#include <algorithm>

#include "platform/host/nt/processor/spin_lock.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"

namespace lidcam::host {
namespace {

PDRIVER_CANCEL ExchangeCancelRoutine(PIRP irp, PDRIVER_CANCEL routine) {
  return __atomic_exchange_n(&irp->CancelRoutine, routine, __ATOMIC_ACQ_REL);
}

void CallCancelRoutine(const CallRule& rule, PIRP irp, PDRIVER_CANCEL routine, KIRQL level) {
  const Thread& self = CurrentThread();
  if (irp->CurrentLocation > irp->StackCount) {
    ReportIrpViolation(
        rule.Name, irp,
        DescribeObject("IRP", irp) + " has a cancel routine and no driver that could have set it");
  }
  irp->CancelIrql = level;
  NoteIrp(irp, rule.Name, nullptr);
  routine(IoGetCurrentIrpStackLocation(irp)->DeviceObject, irp);
  if (std::ranges::find(self.Held, self.World.CancelLock()) != self.Held.end()) {
    ReportIrpViolation(rule.Name, irp,
                       DescribeObject("IRP", irp) +
                           ": the cancel routine returned with the cancel spin lock held");
  }
  if (self.Level != level) {
    ReportIrpViolation(rule.Name, irp,
                       DescribeObject("IRP", irp) + ": the cancel routine returned at level " +
                           std::to_string(self.Level) + " instead of " + std::to_string(level));
  }
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

void IoAcquireCancelSpinLock(PKIRQL before) {
  const CallRule& rule = calls::kIoAcquireCancelSpinLock;
  Thread& self = EnterKernelCall(rule, nullptr);
  *before = self.Level;
  SetLevel(self, DISPATCH_LEVEL);
  AcquireKernelLock(rule, self, self.World.CancelLock());
}

void IoReleaseCancelSpinLock(KIRQL before) {
  const CallRule& rule = calls::kIoReleaseCancelSpinLock;
  Thread& self = EnterKernelCall(rule, nullptr);
  const PreemptionBehind behind(rule.Name, nullptr);
  ReleaseKernelLock(rule, self, self.World.CancelLock());
  if (before > self.Level) {
    ReportViolation(rule.Name, "level " + std::to_string(before) + " is above the present one");
  }
  SetLevel(self, before);
}

PDRIVER_CANCEL IoSetCancelRoutine(PIRP irp, PDRIVER_CANCEL routine) {
  const CallRule& rule = calls::kIoSetCancelRoutine;
  EnterKernelCall(rule, irp);
  ExpectIrp(rule.Name, irp);
  return ExchangeCancelRoutine(irp, routine);
}

BOOLEAN IoCancelIrp(PIRP irp) {
  const CallRule& rule = calls::kIoCancelIrp;
  EnterKernelCall(rule, irp);
  KIRQL level = PASSIVE_LEVEL;
  IoAcquireCancelSpinLock(&level);
  ExpectIrp(rule.Name, irp);
  __atomic_store_n(&irp->Cancel, static_cast<BOOLEAN>(TRUE), __ATOMIC_RELAXED);
  const PDRIVER_CANCEL routine = ExchangeCancelRoutine(irp, nullptr);
  if (routine == nullptr) {
    IoReleaseCancelSpinLock(level);
    return FALSE;
  }
  CallCancelRoutine(rule, irp, routine, level);
  return TRUE;
}
