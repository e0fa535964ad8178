#include <string>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/object_tracker.h"

using namespace lidcam::host;

KIRQL KeGetCurrentIrql() {
  return EnterKernelCall(calls::kKeGetCurrentIrql, nullptr).Level;
}

void KeRaiseIrql(KIRQL level, PKIRQL before) {
  const CallRule& rule = calls::kKeRaiseIrql;
  Thread& self = EnterKernelCall(rule, nullptr);
  if (level < self.Level) {
    ReportViolation(rule.Name, "level " + std::to_string(level) + " is below the present level " +
                                   std::to_string(self.Level));
  }
  *before = self.Level;
  SetLevel(self, level);
}

void KeLowerIrql(KIRQL level) {
  const CallRule& rule = calls::kKeLowerIrql;
  Thread& self = EnterKernelCall(rule, nullptr);
  if (level > self.Level) {
    ReportViolation(rule.Name, "level " + std::to_string(level) + " is above the present level " +
                                   std::to_string(self.Level));
  }
  SetLevel(self, level);
}
