#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/preemption_points.h"
#include "platform/host/nt/scheduling/processor_ticks.h"
#include "platform/host/nt/scheduling/service_pool.h"
#include "platform/host/nt/scheduling/timer_queue.h"
#include "platform/host/nt/scheduling/world_lock.h"
#include "platform/host/nt/verifier/calls/call_history.h"
#include "platform/host/nt/verifier/calls/call_rules.h"

namespace lidcam::host {

class PoolArena;
struct Thread;

/// A thread's operation at a switch point.
struct PointSubject {
  const char* Name = "";         ///< the kernel call; "load" or "store" of a shared field
  const void* Object = nullptr;  ///< the call's object, or the field; may be null or freed
};

enum class SwitchKind {
  Call,  ///< a kernel call: the thread makes progress
  Spin,  ///< a turn of a spin loop: the thread waits for another thread
};

/// A world of threads, time, deferred calls and work items, and the only mechanism by which its
/// threads wait, wake and run. A kernel thread belongs to one world for its lifetime; a machine
/// thread not made by a world belongs to the real-time one.
class Scheduler {
 public:
  /// @param isParallel  whether several of its threads run at the same time
  explicit Scheduler(bool isParallel)
      : isParallel_(isParallel), lock_(isParallel), history_(isParallel) {}
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  virtual ~Scheduler() = default;

  /// Interrupt time: 100 ns since the world began. Any thread of the world.
  [[nodiscard]] LONGLONG Now() const { return isParallel_ ? ReadClock() : now_; }

  /// A stamp of the present, for reports: costs no call of the system. Any thread of the world.
  [[nodiscard]] std::uint64_t Stamp() const {
    return isParallel_ ? ProcessorTicks() : static_cast<std::uint64_t>(now_);
  }

  /// The interrupt time of a stamp.
  [[nodiscard]] LONGLONG TimeOf(std::uint64_t stamp) const {
    return isParallel_ ? TimeOfTicks(stamp) : static_cast<LONGLONG>(stamp);
  }

  /// Whether a thread that is ready runs before time goes on. Those of a busy machine do not.
  [[nodiscard]] virtual bool IsPunctual() const { return true; }

  /// System time at interrupt time 0: 100 ns since 1601.
  [[nodiscard]] virtual LONGLONG SystemTimeAtStart() const = 0;

  /// Lets other threads run if the scheduler decides so. Without the lock. Calls (SwitchKind::Call) are such points only
  /// where one thread runs at a time.
  virtual void SwitchPoint(Thread& self, const char* call, SwitchKind kind) = 0;

  /// As SwitchPoint(), between two calls of the thread. Never throws.
  virtual void PreemptionPoint(Thread&, const PointSubject&, PreemptionKind) noexcept {}

  /// Blocks the caller until Wake(). The lock is held before and after, and released between. In a
  /// world that stops, the thread unwinds without a Wake().
  virtual void Block(Thread& self, std::unique_lock<WorldLock>& guard) = 0;

  /// As Block(), and at interrupt time `due` calls the limit's Expire, which ends the wait. An
  /// earlier Wake() leaves the limit in Timers(), if it is there: the caller removes it.
  virtual void BlockUntil(Thread& self, std::unique_lock<WorldLock>& guard, LONGLONG due,
                          const TimerEntry& limit);

  /// Ends the Block() that `thread` is in. Under the lock.
  virtual void Wake(Thread& thread) = 0;

  /// The queue of timers has changed. Under the lock.
  virtual void TimersChanged() {}

  /// Orders entries that are due at the same time.
  [[nodiscard]] virtual std::uint64_t TieNumber() = 0;

  /// Gives `thread` a machine thread that calls `body`. Under the lock.
  virtual void StartMachine(Thread& thread, std::function<void()> body) = 0;

  /// A thread of the world has ended; its machine thread runs a little longer without accessing the
  /// world. Under the lock.
  virtual void ThreadEnds(Thread& self, std::unique_lock<WorldLock>& guard) = 0;

  /// Called after a violation in the calling thread: no thread of this world may continue.
  virtual void Stop() {}
  [[nodiscard]] bool IsStopping() const { return isStopping_; }

  /// Whether several of the world's threads run at the same time.
  [[nodiscard]] bool IsParallel() const { return isParallel_; }

  /// The owner of a spin lock or a mutex; null if it is free or unknown to the world.
  [[nodiscard]] virtual const Thread* HolderOf(const void*) const { return nullptr; }

  /// Lines for a report: how to reproduce this state, and the threads.
  [[nodiscard]] virtual std::string Describe() const { return {}; }

  /// Makes a kernel thread and starts it. Under the lock.
  Thread& StartThread(const std::string& name, bool isService, std::function<void()> body);

  [[nodiscard]] WorldLock& Lock() { return lock_; }
  [[nodiscard]] TimerQueue& Timers() { return timers_; }
  [[nodiscard]] ServicePool& DeferredCalls() { return deferredCalls_; }
  [[nodiscard]] ServicePool& WorkItems() { return workItems_; }
  [[nodiscard]] PKSPIN_LOCK CancelLock() { return &cancelLock_; }
  /// The world's own pool memory; null: the memory of malloc().
  [[nodiscard]] const std::shared_ptr<PoolArena>& Arena() const { return arena_; }
  [[nodiscard]] CallHistory& History() { return history_; }
  /// Keeps an object until the world has ended, and all of its threads with it. On a thread of the world.
  void KeepUntilEnd(std::shared_ptr<const void> object) { kept_.push_back(std::move(object)); }
  [[nodiscard]] const CallHistory& History() const { return history_; }

  /// Notes an object of the kernel that a driver's call deletes, and how. A run that stops leaves it behind. Any thread
  /// of the world, without the lock.
  void NoteObject(void* object, void (*deleteObject)(void*));
  /// The object is deleted by its own call. Of an object that the world doesn't know: nothing.
  void ForgetObject(void* object);

 protected:
  /// Deletes the objects that were noted and not forgotten. At the world's end, when nothing uses them any more.
  void DeleteObjectsLeft();

  /// As Now(), of a world whose threads run at the same time.
  [[nodiscard]] virtual LONGLONG ReadClock() const { return now_; }

  /// The interrupt time at a number of ProcessorTicks(), of such a world.
  [[nodiscard]] virtual LONGLONG TimeOfTicks(std::uint64_t) const { return now_; }

  LONGLONG now_ = 0;         ///< of a world of which one thread runs at a time
  bool isStopping_ = false;  ///< no thread may continue
  std::uint32_t nextThread_ = 0;
  std::shared_ptr<PoolArena> arena_;

 private:
  const bool isParallel_;
  std::vector<std::shared_ptr<const void>> kept_;  // destroyed last
  WorldLock lock_;
  TimerQueue timers_;
  KSPIN_LOCK cancelLock_ = 0;  // of requests
  ServicePool deferredCalls_{"DPC", DISPATCH_LEVEL};
  ServicePool workItems_{"worker", PASSIVE_LEVEL};
  CallHistory history_;
  std::map<void*, void (*)(void*)> objects_;
};

/// Processes everything that is due by now: waits time out, timers expire. Under the lock.
void ExpireTimers(Scheduler& world);

/// The world of the calling thread.
[[nodiscard]] Scheduler& CurrentWorld();

/// Every kernel call begins here: it is added to the history, its level is checked, and other
/// threads may run.
///
/// @param object  the call's object, for the history; may be null
Thread& EnterKernelCall(const CallRule& rule, const void* object);

/// Reports a call that allocates or waits on a path that must not (NoAllocationScope).
void CheckAllocationFree(const CallRule& rule, const Thread& self, CallEffect effect);

}  // namespace lidcam::host
