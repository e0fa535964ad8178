// A held spin lock contains its owner's address, so that misuse can be detected.

#include <atomic>
#include <vector>

#include "platform/host/nt/processor/spin_lock.h"

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

KSPIN_LOCK OwnerValue(const Thread& thread) {
  return reinterpret_cast<KSPIN_LOCK>(&thread);
}

constexpr const char* kHeld = "is still held";

void CheckOwner(const CallRule& rule, const Thread& self, PKSPIN_LOCK lock) {
  if (std::atomic_ref(*lock).load(std::memory_order_relaxed) == OwnerValue(self)) return;
  ReportViolation(rule.Name, DescribeObject("spin lock", lock) + " isn't held by this thread");
}

void LetGo(Thread& self, PKSPIN_LOCK lock) {
  if (!self.Held.empty() && self.Held.back() == lock) {
    self.Held.pop_back();
  } else {
    std::erase(self.Held, lock);
  }
  std::atomic_ref(*lock).store(0, std::memory_order_release);
}

}  // namespace

void AcquireKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock) {
  std::atomic_ref<KSPIN_LOCK> value(*lock);
  if (value.load(std::memory_order_relaxed) == OwnerValue(self)) {
    ReportViolation(rule.Name,
                    DescribeObject("spin lock", lock) + " is held by this thread already");
  }
  NoteLockOrder(rule.Name, self, lock);
  KSPIN_LOCK free = 0;
  while (!value.compare_exchange_weak(free, OwnerValue(self), std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
    free = 0;
    self.World.SwitchPoint(self, rule.Name, SwitchKind::Spin);
  }
  self.Held.push_back(lock);
  SetObjectInUse(lock, kHeld);
}

void ReleaseKernelLock(const CallRule& rule, Thread& self, PKSPIN_LOCK lock) {
  CheckOwner(rule, self, lock);
  SetObjectInUse(lock, nullptr);
  LetGo(self, lock);
}

namespace {

// Most locks are free, and taken by a thread that holds no other one, so that there is no order to check.
bool TakeFree(const CallRule& rule, Thread& self, PKSPIN_LOCK lock) {
  ObjectInCall object(rule.Name, ObjectKind::SpinLock, lock);
  if (!self.Held.empty()) return false;
  KSPIN_LOCK free = 0;
  if (!std::atomic_ref(*lock).compare_exchange_strong(
          free, OwnerValue(self), std::memory_order_acquire, std::memory_order_relaxed)) {
    return false;
  }
  object.SetInUse(kHeld);
  return true;
}

void Acquire(const CallRule& rule, Thread& self, PKSPIN_LOCK lock) {
  if (TakeFree(rule, self, lock)) {
    self.Held.push_back(lock);
  } else {
    AcquireKernelLock(rule, self, lock);
  }
}

void Release(const CallRule& rule, Thread& self, PKSPIN_LOCK lock) {
  {
    ObjectInCall object(rule.Name, ObjectKind::SpinLock, lock);
    if (std::atomic_ref(*lock).load(std::memory_order_relaxed) == OwnerValue(self)) {
      object.SetInUse(nullptr);
    }
  }
  CheckOwner(rule, self, lock);
  LetGo(self, lock);
}

void CheckLinks(const CallRule& rule, const LIST_ENTRY& entry) {
  if (entry.Flink->Blink == &entry && entry.Blink->Flink == &entry) return;
  ReportViolation(rule.Name, DescribeObject("list entry", &entry) + " is corrupted");
}

// The interlocked list operations are atomic for the caller, at any level.
class ListGuard {
 public:
  ListGuard(const CallRule& rule, Thread& self, PKSPIN_LOCK lock)
      : rule_(rule), self_(self), lock_(lock), level_(self.Level) {
    if (self.Level < DISPATCH_LEVEL) SetLevel(self, DISPATCH_LEVEL);
    Acquire(rule, self, lock);
  }
  ListGuard(const ListGuard&) = delete;
  ListGuard& operator=(const ListGuard&) = delete;

  void End() {
    Release(rule_, self_, lock_);
    SetLevel(self_, level_);
  }

 private:
  const CallRule& rule_;
  Thread& self_;
  PKSPIN_LOCK lock_;
  KIRQL level_;
};

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

void KeInitializeSpinLock(PKSPIN_LOCK lock) {
  const CallRule& rule = calls::kKeInitializeSpinLock;
  EnterKernelCall(rule, lock);
  ForgetLockOrder(lock);
  RegisterObject(rule.Name, ObjectKind::SpinLock, lock, sizeof(*lock));
  *lock = 0;
}

void KeAcquireSpinLock(PKSPIN_LOCK lock, PKIRQL before) {
  const CallRule& rule = calls::kKeAcquireSpinLock;
  Thread& self = EnterKernelCall(rule, lock);
  *before = self.Level;
  SetLevel(self, DISPATCH_LEVEL);
  Acquire(rule, self, lock);
}

void KeReleaseSpinLock(PKSPIN_LOCK lock, KIRQL before) {
  const CallRule& rule = calls::kKeReleaseSpinLock;
  Thread& self = EnterKernelCall(rule, lock);
  const PreemptionBehind behind(rule.Name, lock);
  Release(rule, self, lock);
  if (before > self.Level) {
    ReportViolation(rule.Name, "level " + std::to_string(before) + " is above the present one");
  }
  SetLevel(self, before);
}

void KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK lock) {
  const CallRule& rule = calls::kKeAcquireSpinLockAtDpcLevel;
  Acquire(rule, EnterKernelCall(rule, lock), lock);
}

void KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK lock) {
  const CallRule& rule = calls::kKeReleaseSpinLockFromDpcLevel;
  const PreemptionBehind behind(rule.Name, lock);
  Release(rule, EnterKernelCall(rule, lock), lock);
}

PLIST_ENTRY ExInterlockedInsertTailList(PLIST_ENTRY head, PLIST_ENTRY entry, PKSPIN_LOCK lock) {
  const CallRule& rule = calls::kExInterlockedInsertTailList;
  const PreemptionBehind behind(rule.Name, head);
  ListGuard guard(rule, EnterKernelCall(rule, head), lock);
  CheckLinks(rule, *head);
  LIST_ENTRY* const last = IsListEmpty(head) ? nullptr : head->Blink;
  InsertTailList(head, entry);
  guard.End();
  return last;
}

PLIST_ENTRY ExInterlockedRemoveHeadList(PLIST_ENTRY head, PKSPIN_LOCK lock) {
  const CallRule& rule = calls::kExInterlockedRemoveHeadList;
  const PreemptionBehind behind(rule.Name, head);
  ListGuard guard(rule, EnterKernelCall(rule, head), lock);
  CheckLinks(rule, *head);
  LIST_ENTRY* const first = IsListEmpty(head) ? nullptr : RemoveHeadList(head);
  guard.End();
  return first;
}
