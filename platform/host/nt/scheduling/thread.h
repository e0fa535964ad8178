#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/memory/guards/freed_use.h"
#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {
struct Thread;
}

/// The thread object that drivers wait for. The platform does not publish its layout.
struct KTHREAD {
  DISPATCHER_HEADER Header;
  lidcam::host::Thread* Host;
};

namespace lidcam::host {

class ExecutionContext;

/// Events of a thread's object, for the verifier.
struct ThreadObjectEvents {
  void (*Ended)(KTHREAD& object);  ///< the object is signalled. Under the world's lock
  void (*Gone)(KTHREAD& object);   ///< the last reference is released
};

/// A kernel thread: made by the kernel, or a machine thread that calls it.
struct Thread {
  Thread(Scheduler& world, std::uint32_t number, std::string name);
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread();

  enum class RunState { Ready, Blocked, Ended };

  KTHREAD Object;
  const ThreadObjectEvents* ObjectEvents = nullptr;  ///< null: unknown to drivers
  Scheduler& World;
  const std::uint32_t Number;    ///< within its world, in the order of creation
  const std::uint64_t Identity;  ///< above 0, and no other thread's of the process, before or after
  const std::string Name;
  bool IsService = false;       ///< one of the kernel's own, which never ends
  KIRQL Level = PASSIVE_LEVEL;  ///< changed by SetLevel()
  std::atomic<KPRIORITY> Priority{8};
  std::atomic<LONG> References{1};  ///< the first is held by the running thread itself

  // The locks it holds, oldest first.
  std::vector<const void*> Held;

  // Requests of applications that it runs; one may cause another.
  std::size_t ApplicationRequests = 0;

  // The path in progress, if it must not allocate or wait.
  const char* AllocationFreePath = nullptr;

  // The last kernel call, for reports.
  const char* LastCall = "";
  const void* LastObject = nullptr;

  // Its first use of freed pool memory that has not been reported.
  FreedUse UsedFreed;

  /// The stack on which the code of a loaded driver runs; null until it does.
  std::shared_ptr<void> DriverStack;

  // Used by the scheduler.
  WakeFlag Woken;
  LateWakes Late;
  ExecutionContext* Context = nullptr;  ///< in a simulation
  RunState State = RunState::Ready;
  unsigned Spins = 0;            ///< since the last progress that it has seen
  std::uint64_t SpinsSince = 0;  ///< number of that progress
  std::uint64_t Rank = 0;  ///< among threads that can run: the highest runs first; 0: not drawn
  std::uint64_t RankedSince = 0;     ///< number of the advance of time before the rank was drawn
  const void* NextObject = nullptr;  ///< of the operation ahead of which it is suspended
  LONGLONG StalledUntil = 0;         ///< interrupt time; the thread doesn't run before
  bool SpinsForGood = false;         ///< its next turn of a spin loop begins an endless loop
  bool HasStopped = false;           ///< the endless loop has begun: the thread isn't run any more
};

/// The calling thread.
[[nodiscard]] Thread& CurrentThread();

/// The calling thread; null if it has never called the kernel.
/// @par Callable in signal handlers
[[nodiscard]] Thread* FindCurrentThread();

/// Makes `thread` the calling machine thread's kernel thread; null removes it.
///
/// @return the previous one
Thread* SetCurrentThread(Thread* thread);

/// Until the call with -1, a machine thread that belongs to no world mustn't call the kernel: it
/// would run concurrently with a simulation that doesn't schedule it.
void CountSimulations(int change);

/// Raises or lowers a thread that runs. At dispatch level the world's paged memory is inaccessible.
void SetLevel(Thread& self, KIRQL level);

/// Body of a machine thread for a kernel thread: runs `body`, then signals the thread object.
void RunThread(Thread& thread, const std::function<void()>& body);

/// Checks that a thread that ends is at passive level and holds no lock.
void CheckThreadEnd(const char* call, const Thread& self);

/// Releases a reference; the last one deletes the thread.
LONG_PTR DereferenceThread(Thread& thread);

/// Thrown by a thread that ends itself, to unwind it up to RunThread().
struct ThreadExit {};

}  // namespace lidcam::host
