#include "platform/host/nt/objects/dispatcher.h"

#include <algorithm>
#include <array>

#include "base/time_units.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

constexpr LONGLONG kLongestTime = 100LL * 365 * 24 * 3600 * 1000 * base::kUnitsPerMillisecond;

bool CanTake(const DISPATCHER_HEADER& header, const Thread& taker) {
  if (header.SignalState > 0) return true;
  if (header.Type != kMutexType) return false;
  return reinterpret_cast<const KMUTEX&>(header).OwnerThread == &taker.Object;
}

void TakeMutex(KMUTEX& mutex, Thread& taker) {
  if (--mutex.Header.SignalState != 0) return;
  mutex.OwnerThread = &taker.Object;
  taker.Held.push_back(&mutex);
  SetObjectInUse(&mutex, "is still owned");
}

void Take(DISPATCHER_HEADER& header, Thread& taker) {
  switch (header.Type) {
    case kSynchronizationEventType:
    case kSynchronizationTimerType:
      header.SignalState = 0;
      break;
    case kSemaphoreType:
      --header.SignalState;
      if (IsLock(header)) taker.Held.push_back(&header);
      break;
    case kMutexType:
      TakeMutex(reinterpret_cast<KMUTEX&>(header), taker);
      break;
    default:
      break;
  }
}

bool TryAll(Wait& wait) {
  const bool isSatisfied = std::ranges::all_of(
      wait.Entries, [&](const WaitEntry& entry) { return CanTake(*entry.Object, wait.Self); });
  if (!isSatisfied) return false;
  for (const WaitEntry& entry : wait.Entries) Take(*entry.Object, wait.Self);
  wait.Status = STATUS_WAIT_0;
  return true;
}

bool TryAny(Wait& wait) {
  const auto found = std::ranges::find_if(
      wait.Entries, [&](const WaitEntry& entry) { return CanTake(*entry.Object, wait.Self); });
  if (found == wait.Entries.end()) return false;
  Take(*found->Object, wait.Self);
  wait.Status = STATUS_WAIT_0 + static_cast<NTSTATUS>(found - wait.Entries.begin());
  return true;
}

bool TrySatisfy(Wait& wait) {
  if (wait.Entries.empty()) return false;
  return wait.Type == WaitAll ? TryAll(wait) : TryAny(wait);
}

void Dequeue(Wait& wait) {
  if (!wait.IsQueued) return;
  // In a world that stops the objects may be gone.
  const bool isStopping = wait.Self.World.IsStopping();
  for (WaitEntry& entry : wait.Entries) {
    if (!isStopping) RemoveEntryList(&entry.Link);
    CountWaiters(entry.Object, -1);
  }
  if (wait.HasLimit) wait.Self.World.Timers().Remove(&wait);
  wait.IsQueued = false;
}

void Complete(Wait& wait) {
  Dequeue(wait);
  wait.IsDone = true;
  wait.Self.World.Wake(wait.Self);
}

void GiveUp(Scheduler&, void* object) {
  Wait& wait = *static_cast<Wait*>(object);
  wait.Status = STATUS_TIMEOUT;
  Complete(wait);
}

void Enqueue(Wait& wait) {
  for (WaitEntry& entry : wait.Entries) {
    entry.Owner = &wait;
    InsertTailList(&entry.Object->WaitListHead, &entry.Link);
    CountWaiters(entry.Object, 1);
  }
  wait.IsQueued = true;
}

void ExpireTimer(Scheduler& world, void* object) {
  auto* const timer = static_cast<PKTIMER>(object);
  timer->Header.SignalState = 1;
  timer->Header.Inserted = FALSE;
  SetObjectInUse(timer, nullptr);
  if (timer->Period != 0) {
    SetTimer(world, timer,
             static_cast<LONGLONG>(timer->DueTime.QuadPart) +
                 timer->Period * base::kUnitsPerMillisecond);
    timer->Header.SignalState = 1;
  }
  WakeWaiters(timer->Header);
  if (timer->Dpc != nullptr) QueueDeferredCall(world, timer->Dpc, nullptr, nullptr);
}

void RunDeferredCall(PVOID item) {
  auto* const dpc = static_cast<PKDPC>(item);
  Scheduler& world = CurrentWorld();
  std::unique_lock guard(world.Lock());
  const KDPC call = *dpc;
  dpc->DpcData = nullptr;
  SetObjectInUse(dpc, nullptr);
  guard.unlock();
  // From here on the owner may queue, free or reinitialise it.
  call.DeferredRoutine(dpc, call.DeferredContext, call.SystemArgument1, call.SystemArgument2);
}

// A thread that unwinds out of its wait must not stay in the queues.
class QueuedWait {
 public:
  explicit QueuedWait(Wait& wait) : wait_(wait) {}
  QueuedWait(const QueuedWait&) = delete;
  QueuedWait& operator=(const QueuedWait&) = delete;
  ~QueuedWait() { Dequeue(wait_); }

 private:
  Wait& wait_;
};

void CheckWaited(const CallRule& rule, Thread& self, std::span<const PVOID> objects,
                 bool mayBlock) {
  if (mayBlock && self.Level > APC_LEVEL) {
    ReportViolation(rule.Name, "a wait that may block at level " + std::to_string(self.Level));
  }
  if (mayBlock) CheckAllocationFree(rule, self, CallEffect::Waits);
  for (const PVOID object : objects) {
    const ObjectKind kind = ExpectDispatcherObject(rule.Name, object);
    const bool isHeld = std::ranges::find(self.Held, object) != self.Held.end();
    const bool isLock =
        kind == ObjectKind::Mutex || IsLock(*static_cast<const DISPATCHER_HEADER*>(object));
    if (mayBlock && isLock && !isHeld) NoteLockOrder(rule.Name, self, object);
  }
}

}  // namespace

void InitializeHeader(DISPATCHER_HEADER& header, UCHAR type, std::size_t size, LONG state) {
  header = {};
  header.Type = type;
  header.Size = static_cast<UCHAR>(size / sizeof(LONG));
  header.SignalState = state;
  InitializeListHead(&header.WaitListHead);
}

void WakeWaiters(DISPATCHER_HEADER& header) {
  LIST_ENTRY* const head = &header.WaitListHead;
  LIST_ENTRY* link = head->Flink;
  while (link != head && header.SignalState > 0) {
    Wait& wait = *CONTAINING_RECORD(link, WaitEntry, Link)->Owner;
    link = link->Flink;
    if (!TrySatisfy(wait)) continue;
    Complete(wait);
    // One wait may be in the queue more than once: the next entry may have been removed with it.
    link = head->Flink;
  }
}

LONGLONG DueTime(const Scheduler& world, const LARGE_INTEGER& time) {
  const LONGLONG now = world.Now();
  if (time.QuadPart < 0) return now - std::max(time.QuadPart, -kLongestTime);
  return std::min(time.QuadPart - world.SystemTimeAtStart(), now + kLongestTime);
}

NTSTATUS WaitForObjects(const CallRule& rule, std::span<const PVOID> objects, WAIT_TYPE type,
                        const LARGE_INTEGER* limit) {
  Thread& self = EnterKernelCall(rule, objects.empty() ? nullptr : objects.front());
  const bool mayBlock = limit == nullptr || limit->QuadPart != 0;
  CheckWaited(rule, self, objects, mayBlock);
  std::array<WaitEntry, MAXIMUM_WAIT_OBJECTS> entries;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    entries[i] = {
        .Link = {}, .Owner = nullptr, .Object = static_cast<DISPATCHER_HEADER*>(objects[i])};
  }
  std::unique_lock guard(self.World.Lock());
  Wait wait{.Self = self,
            .Type = type,
            .Entries = {entries.data(), objects.size()},
            .HasLimit = limit != nullptr};
  if (TrySatisfy(wait)) return wait.Status;
  if (!mayBlock) return STATUS_TIMEOUT;
  const QueuedWait queued(wait);
  Enqueue(wait);
  if (limit != nullptr) {
    self.World.BlockUntil(self, guard, DueTime(self.World, *limit), {GiveUp, &wait});
  } else {
    self.World.Block(self, guard);
  }
  return wait.Status;
}

bool SetTimer(Scheduler& world, PKTIMER timer, LONGLONG due) {
  const bool wasSet = world.Timers().Remove(timer);
  timer->Header.SignalState = 0;
  timer->Header.Inserted = TRUE;
  timer->DueTime.QuadPart = static_cast<ULONGLONG>(due);
  SetObjectInUse(timer, "is still set");
  world.Timers().Insert(due, world.TieNumber(), {ExpireTimer, timer});
  world.TimersChanged();
  return wasSet;
}

bool QueueDeferredCall(Scheduler& world, PKDPC dpc, PVOID argument1, PVOID argument2) {
  if (dpc->DpcData != nullptr) return false;
  dpc->DpcData = &world;
  dpc->SystemArgument1 = argument1;
  dpc->SystemArgument2 = argument2;
  SetObjectInUse(dpc, "is still queued");
  world.DeferredCalls().Put(world, RunDeferredCall, dpc);
  return true;
}

}  // namespace lidcam::host

NTSTATUS KeWaitForSingleObject(PVOID object, KWAIT_REASON, KPROCESSOR_MODE, BOOLEAN,
                               PLARGE_INTEGER timeout) {
  return lidcam::host::WaitForObjects(lidcam::host::calls::kKeWaitForSingleObject, {&object, 1},
                                      WaitAny, timeout);
}

NTSTATUS KeWaitForMultipleObjects(ULONG count, PVOID objects[], WAIT_TYPE type, KWAIT_REASON,
                                  KPROCESSOR_MODE, BOOLEAN, PLARGE_INTEGER timeout,
                                  PKWAIT_BLOCK waitBlocks) {
  const auto& rule = lidcam::host::calls::kKeWaitForMultipleObjects;
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
    lidcam::host::ReportViolation(rule.Name, std::to_string(count) + " objects");
  }
  if (count > THREAD_WAIT_OBJECTS && waitBlocks == nullptr) {
    lidcam::host::ReportViolation(rule.Name, std::to_string(count) + " objects and no wait blocks");
  }
  return lidcam::host::WaitForObjects(rule, {objects, count}, type, timeout);
}

NTSTATUS KeDelayExecutionThread(KPROCESSOR_MODE, BOOLEAN, PLARGE_INTEGER interval) {
  const NTSTATUS status = lidcam::host::WaitForObjects(lidcam::host::calls::kKeDelayExecutionThread,
                                                       {}, WaitAny, interval);
  return status == STATUS_TIMEOUT ? STATUS_SUCCESS : status;
}
