#include "platform/host/nt/scheduling/thread.h"

#include <string>
#include <utility>

#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/scheduling/real_time_scheduler.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

constinit thread_local Thread* t_current = nullptr;
constinit std::atomic<int> g_simulations{0};
constinit std::atomic<std::uint64_t> g_threads{0};  // so far

// A machine thread's kernel thread, for as long as the machine thread runs.
struct AdoptedThread {
  AdoptedThread() = default;
  AdoptedThread(const AdoptedThread&) = delete;
  AdoptedThread& operator=(const AdoptedThread&) = delete;
  ~AdoptedThread() {
    if (t_current == Adopted) t_current = nullptr;
    delete Adopted;
  }

  Thread* Adopted = nullptr;
};

thread_local AdoptedThread t_adopted;

void AdoptMachineThread() {
  t_adopted.Adopted = RealTimeScheduler::The().Adopt();
  t_current = t_adopted.Adopted;
  if (g_simulations == 0) return;
  ReportViolation("kernel call", "a machine thread that no simulation made runs beside one");
}

void EndThread(Thread& self) {
  Scheduler& world = self.World;
  std::unique_lock guard(world.Lock());
  self.Object.Header.SignalState = 1;
  if (!world.IsStopping() && self.ObjectEvents != nullptr) self.ObjectEvents->Ended(self.Object);
  world.ThreadEnds(self, guard);
  // Still under the lock: the next thread may end the world.
  t_current = nullptr;
  self.Late.WakeAll();
  DereferenceThread(self);
}

}  // namespace

Thread::Thread(Scheduler& world, std::uint32_t number, std::string name)
    : Object{.Header = {}, .Host = this},
      World(world),
      Number(number),
      Identity(++g_threads),
      Name(std::move(name)) {}

Thread::~Thread() {
  if (ObjectEvents != nullptr) ObjectEvents->Gone(Object);
}

Thread& CurrentThread() {
  if (t_current == nullptr) AdoptMachineThread();
  return *t_current;
}

Thread* FindCurrentThread() {
  return t_current;
}

Thread* SetCurrentThread(Thread* thread) {
  return std::exchange(t_current, thread);
}

void SetLevel(Thread& self, KIRQL level) {
  self.Level = level;
  if (IsPagedMemoryInUse()) FollowLevel(&self.World, level);
  if (level < DISPATCH_LEVEL && !self.Late.IsEmpty()) self.Late.WakeAll();
}

void CountSimulations(int change) {
  g_simulations += change;
}

void CheckThreadEnd(const char* call, const Thread& self) {
  if (self.UsedFreed.Block != nullptr) ReportViolation(call, DescribeFreedUse(self.UsedFreed));
  if (self.Level != PASSIVE_LEVEL) {
    ReportViolation(call, "the thread ends at level " + std::to_string(self.Level));
  }
  if (!self.Held.empty()) {
    ReportViolation(call,
                    "the thread ends with " + DescribeObject("lock", self.Held.front()) + " held");
  }
}

void RunThread(Thread& thread, const std::function<void()>& body) {
  t_current = &thread;
  SetLevel(thread, thread.Level);
  try {
    if (thread.World.IsStopping()) throw KernelStopped{};
    body();
    CheckThreadEnd("thread", thread);
  } catch (const ThreadExit&) {
  } catch (const KernelStopped&) {
  }
  EndThread(thread);
}

LONG_PTR DereferenceThread(Thread& thread) {
  const LONG left = --thread.References;
  if (left == 0) delete &thread;
  return left;
}

}  // namespace lidcam::host
