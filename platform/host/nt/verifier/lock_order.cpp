#include "platform/host/nt/verifier/lock_order.h"

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "base/process_mutex.h"
#include "platform/host/nt/declarations/verifier_declarations.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

using Lock = const char*;
using LockSet = std::set<Lock, std::less<>>;

// For each lock, those that were taken while it was held. Never destroyed, like the registry.
struct Orders {
  base::ProcessMutex Mutex;
  std::map<Lock, LockSet, std::less<>> Next;
  LockSet Known;  // all locks above: most memory that is freed holds none
};

Orders& TheOrders() {
  static auto* const orders = new Orders;
  return *orders;
}

bool LeadsTo(const Orders& orders, Lock from, Lock to) {
  std::vector<Lock> open{from};
  LockSet seen;
  while (!open.empty()) {
    const Lock lock = open.back();
    open.pop_back();
    if (lock == to) return true;
    const auto next = orders.Next.find(lock);
    if (!seen.insert(lock).second || next == orders.Next.end()) continue;
    open.insert(open.end(), next->second.begin(), next->second.end());
  }
  return false;
}

// The held lock that was taken after `lock` before, directly or over others; null if none.
Lock FindInversion(const Thread& self, Lock lock) {
  Orders& orders = TheOrders();
  const std::lock_guard guard(orders.Mutex);
  for (const void* const held : self.Held) {
    if (held == lock) return lock;  // a rundown that waits for its own thread's hold
    const auto known = orders.Next.find(static_cast<Lock>(held));
    // An order is kept only if the opposite one isn't.
    if (known != orders.Next.end() && known->second.contains(lock)) continue;
    if (LeadsTo(orders, lock, static_cast<Lock>(held))) return static_cast<Lock>(held);
    orders.Next[static_cast<Lock>(held)].insert(lock);
    orders.Known.insert({static_cast<Lock>(held), lock});
  }
  return nullptr;
}

// Releases one hold of several: the others stay.
void ReleaseHold(Thread& self, const void* rundown) {
  const auto held = std::find(self.Held.rbegin(), self.Held.rend(), rundown);
  if (held != self.Held.rend()) self.Held.erase(std::next(held).base());
}

}  // namespace

void NoteLockOrder(const char* call, const Thread& self, const void* lock) {
  if (self.Held.empty()) return;
  const Lock inverted = FindInversion(self, static_cast<Lock>(lock));
  if (inverted == nullptr) return;
  ReportViolation(call, DescribeObject("lock", lock) + " is taken while " +
                            DescribeObject("lock", inverted) +
                            " is held, and they were taken the other way round before");
}

void ForgetLockOrder(const void* lock) {
  ForgetLockOrders(lock, 1);
}

void ForgetLockOrders(const void* memory, std::size_t size) {
  Orders& orders = TheOrders();
  const auto begin = static_cast<Lock>(memory);
  const std::lock_guard guard(orders.Mutex);
  const auto first = orders.Known.lower_bound(begin);
  const auto end = orders.Known.lower_bound(begin + size);
  if (first == end) return;
  orders.Known.erase(first, end);
  orders.Next.erase(orders.Next.lower_bound(begin), orders.Next.lower_bound(begin + size));
  for (auto& [lock, next] : orders.Next) {
    next.erase(next.lower_bound(begin), next.lower_bound(begin + size));
  }
}

}  // namespace lidcam::host

namespace lidcam {

// Taking a hold never waits: the locks held at that time imply no order.
void NoteHoldTaken(const void* rundown) {
  host::CurrentThread().Held.push_back(rundown);
}

void NoteHoldReleased(const void* rundown) {
  host::ReleaseHold(host::CurrentThread(), rundown);
}

void NoteHoldsAwaited(const void* rundown) {
  host::NoteLockOrder("rundown", host::CurrentThread(), rundown);
}

}  // namespace lidcam
