// The path of a request: down through the dispatch routines, up through the completion routines.

#include <string>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/no_allocation_scope.h"

namespace lidcam::host {
namespace {

// Drivers must return at the interrupt level at which they were called.
void ExpectLevel(const CallRule& rule, PIRP irp, const char* routine, KIRQL before) {
  const KIRQL now = CurrentThread().Level;
  if (now == before) return;
  ReportIrpViolation(rule.Name, irp,
                     DescribeObject("IRP", irp) + ": the " + routine +
                         " routine, called at level " + std::to_string(before) +
                         ", returned at level " + std::to_string(now));
}

// True if the routine stops the completion (STATUS_MORE_PROCESSING_REQUIRED).
bool CallCompletionRoutine(const CallRule& rule, PIRP irp, const CompletionStep& step) {
  const KIRQL level = CurrentThread().Level;
  NoteIrp(irp, "completion routine's context", step.Context);
  const CompletionScope scope;
  const NTSTATUS status = step.Routine(step.Device, irp, step.Context);
  ExpectLevel(rule, irp, "completion", level);
  return status == STATUS_MORE_PROCESSING_REQUIRED;
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

NTSTATUS IofCallDriver(PDEVICE_OBJECT device, PIRP irp) {
  const CallRule& rule = calls::kIofCallDriver;
  const Thread& self = EnterKernelCall(rule, irp);
  const PreemptionBehind behind(rule.Name, irp);
  const auto passage = BeginPassage(rule.Name, irp, device);
  const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
  const KIRQL level = self.Level;
  const NTSTATUS status = device->DriverObject->MajorFunction[major](device, irp);
  ExpectLevel(rule, irp, "dispatch", level);
  EndPassage(rule.Name, irp, *passage, status);
  return status;
}

void IofCompleteRequest(PIRP irp, CCHAR) {
  const CallRule& rule = calls::kIofCompleteRequest;
  EnterKernelCall(rule, irp);
  const PreemptionBehind behind(rule.Name, irp);
  const IrpLife life = BeginCompletion(rule.Name, irp);
  while (true) {
    const CompletionStep step = CompleteLocation(rule.Name, irp, life);
    if (step.IsEnd) break;
    if (step.Routine != nullptr && CallCompletionRoutine(rule, irp, step)) return;
  }
  // Requests are made by drivers here: no application's thread waits for the request.
  ReportIrpViolation(
      rule.Name, irp,
      DescribeObject("IRP", irp) + " came to its end, and no completion routine kept it");
}
