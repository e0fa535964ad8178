#include "platform/host/nt/verifier/lock_order.h"

#include <algorithm>
#include <array>
#include <cstdint>
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

  // Orders found last, by both locks: most locks are taken again and again in the same order.
  struct Pair {
    Lock Held = nullptr;
    Lock Taken = nullptr;
  };
  std::array<Pair, 64> Recent{};

  [[nodiscard]] Pair& RecentOf(Lock held, Lock taken) {
    constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;
    const auto both =
        reinterpret_cast<std::uintptr_t>(held) * 3 + reinterpret_cast<std::uintptr_t>(taken);
    return Recent[both / 8 * kMix >> 58U];
  }
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
    const auto first = static_cast<Lock>(held);
    Orders::Pair& recent = orders.RecentOf(first, lock);
    if (recent.Held == first && recent.Taken == lock) continue;
    // An order is kept only if the opposite one isn't.
    if (!orders.Next[first].contains(lock)) {
      if (LeadsTo(orders, lock, first)) return first;
      orders.Next[first].insert(lock);
      orders.Known.insert({first, lock});
    }
    recent = {first, lock};
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
  if (first == orders.Known.end() || *first >= begin + size) return;
  orders.Known.erase(first, orders.Known.lower_bound(begin + size));
  orders.Recent = {};
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
