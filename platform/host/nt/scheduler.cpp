#include "platform/host/nt/scheduler.h"

#include <string>

#include "platform/host/nt/dispatcher.h"
#include "platform/host/nt/thread.h"
#include "platform/host/nt/verifier.h"

namespace lidcam::host {
namespace {

void CheckLevel(const CallRule& rule, const Thread& self) {
  if (self.World.IsStopping()) return;
  if (self.Level >= rule.Lowest && self.Level <= rule.Highest) return;
  ReportViolation(rule.Name, "called at level " + std::to_string(self.Level) + ", allowed are " +
                                 std::to_string(rule.Lowest) + " to " +
                                 std::to_string(rule.Highest));
}

}  // namespace

Scheduler::Scheduler()
    : deferredCalls_("DPC", DISPATCH_LEVEL, RunDeferredCall),
      workItems_("worker", PASSIVE_LEVEL, RunWorkItem) {}

Thread& Scheduler::StartThread(const std::string& name, bool isService,
                               std::function<void()> body) {
  auto* const thread = new Thread(*this, nextThread_++, name);
  thread->IsService = isService;
  StartMachine(*thread, [thread, run = std::move(body)] { RunThread(*thread, run); });
  return *thread;
}

Scheduler& CurrentWorld() {
  return CurrentThread().World;
}

Thread& EnterKernelCall(const CallRule& rule, const void* object) {
  Thread& self = CurrentThread();
  self.LastCall = rule.Name;
  self.LastObject = object;
  self.World.History().Add({.Time = self.World.Now(),
                            .Thread = self.Number,
                            .Level = self.Level,
                            .Call = rule.Name,
                            .Object = object});
  CheckLevel(rule, self);
  self.World.SwitchPoint(self, rule.Name, SwitchKind::Call);
  return self;
}

void SpinOnce() {
  Thread& self = CurrentThread();
  self.LastCall = calls::kYieldProcessor.Name;
  self.World.SwitchPoint(self, calls::kYieldProcessor.Name, SwitchKind::Spin);
}

}  // namespace lidcam::host

void KeQuerySystemTime(PLARGE_INTEGER time) {
  using namespace lidcam::host;
  const Scheduler& world = EnterKernelCall(calls::kKeQuerySystemTime, nullptr).World;
  time->QuadPart = world.SystemTimeAtStart() + world.Now();
}

ULONGLONG KeQueryInterruptTime() {
  using namespace lidcam::host;
  const Scheduler& world = EnterKernelCall(calls::kKeQueryInterruptTime, nullptr).World;
  return static_cast<ULONGLONG>(world.Now());
}
