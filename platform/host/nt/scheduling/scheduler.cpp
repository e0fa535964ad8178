#include "platform/host/nt/scheduling/scheduler.h"

#include <string>
#include <utility>

#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

void CheckLevel(const CallRule& rule, const Thread& self) {
  if (self.Level >= rule.Lowest && self.Level <= rule.Highest) return;
  if (self.World.IsStopping()) return;
  ReportViolation(rule.Name, "called at level " + std::to_string(self.Level) + ", allowed are " +
                                 std::to_string(rule.Lowest) + " to " +
                                 std::to_string(rule.Highest));
}

void CheckFreedUse(const CallRule& rule, Thread& self) {
  if (self.UsedFreed.Block == nullptr || self.World.IsStopping()) return;
  ReportViolation(rule.Name, "ahead of it " + DescribeFreedUse(self.UsedFreed));
}

// What a call at dispatch level uses has to be resident.
void CheckResidence(const CallRule& rule, const Thread& self, const void* object) {
  if (self.Level < DISPATCH_LEVEL || !IsPagedMemoryInUse() || self.World.IsStopping()) return;
  const std::string paged = FindPagedBlock(object);
  if (paged.empty()) return;
  ReportViolation(rule.Name, "called at dispatch level for an object in paged " + paged);
}

// Whether a look at each of the rules is needed: most calls keep them all.
bool MayBeWrong(const CallRule& rule, const Thread& self) {
  return self.UsedFreed.Block != nullptr || self.Level < rule.Lowest || self.Level > rule.Highest ||
         (self.Level >= DISPATCH_LEVEL && IsPagedMemoryInUse()) ||
         (rule.Effect != CallEffect::None && self.AllocationFreePath != nullptr);
}

[[gnu::cold]] void CheckRules(const CallRule& rule, Thread& self, const void* object) {
  CheckFreedUse(rule, self);
  CheckLevel(rule, self);
  CheckResidence(rule, self, object);
  CheckAllocationFree(rule, self, rule.Effect);
}

const char* Verb(CallEffect effect) {
  return effect == CallEffect::Waits ? "waits" : "allocates";
}

}  // namespace

void ExpireTimers(Scheduler& world) {
  while (const auto entry = world.Timers().TakeDue(world.Now())) {
    entry->Expire(world, entry->Object);
  }
}

void Scheduler::BlockUntil(Thread& self, std::unique_lock<WorldLock>& guard, LONGLONG due,
                           const TimerEntry& limit) {
  Timers().Insert(due, TieNumber(), limit);
  Block(self, guard);
}

void Scheduler::NoteObject(void* object, void (*deleteObject)(void*)) {
  const std::lock_guard guard(lock_);
  objects_.insert_or_assign(object, deleteObject);
}

void Scheduler::ForgetObject(void* object) {
  const std::lock_guard guard(lock_);
  objects_.erase(object);
}

void Scheduler::DeleteObjectsLeft() {
  for (const auto& [object, deleteObject] : std::exchange(objects_, {})) deleteObject(object);
}

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

void CheckAllocationFree(const CallRule& rule, const Thread& self, CallEffect effect) {
  if (effect == CallEffect::None || self.AllocationFreePath == nullptr) return;
  if (self.World.IsStopping()) return;
  ReportViolation(rule.Name, std::string(Verb(effect)) +
                                 " on a path that must not: " + self.AllocationFreePath);
}

Thread& EnterKernelCall(const CallRule& rule, const void* object) {
  Thread& self = CurrentThread();
  self.LastCall = rule.Name;
  self.LastObject = object;
  Scheduler& world = self.World;
  world.History().Add({.Time = world.Stamp(),
                       .Thread = self.Number,
                       .Level = self.Level,
                       .Call = rule.Name,
                       .Object = object});
  if (MayBeWrong(rule, self)) CheckRules(rule, self, object);
  // Where threads run at the same time, the machine switches between them.
  if (!world.IsParallel()) world.SwitchPoint(self, rule.Name, SwitchKind::Call);
  return self;
}

void SpinOnce() {
  Thread& self = CurrentThread();
  self.LastCall = calls::kYieldProcessor.Name;
  CheckFreedUse(calls::kYieldProcessor, self);
  self.HasStopped = self.SpinsForGood;
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
