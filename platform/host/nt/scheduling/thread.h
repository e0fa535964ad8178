#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <semaphore>
#include <string>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/memory/guards/freed_use.h"
#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {
struct Thread;
}

/// The thread object that drivers wait for. The platform keeps its layout to itself.
struct KTHREAD {
  DISPATCHER_HEADER Header;
  lidcam::host::Thread* Host;
};

namespace lidcam::host {

/// What becomes of a thread's object, for those that know it.
struct ThreadObjectEvents {
  void (*Ended)(KTHREAD& object);  ///< it is signalled. Under the world's lock
  void (*Gone)(KTHREAD& object);   ///< nothing refers to it any more
};

/// A kernel thread: one that the kernel made, or a machine thread that calls it.
struct Thread {
  Thread(Scheduler& world, std::uint32_t number, std::string name);
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread();

  enum class RunState { Ready, Blocked, Ended };

  KTHREAD Object;
  const ThreadObjectEvents* ObjectEvents = nullptr;  ///< null: drivers don't know the object
  Scheduler& World;
  const std::uint32_t Number;  ///< in its world, in the order of creation
  const std::string Name;
  bool IsService = false;  ///< one of the kernel's own, which never ends
  KIRQL Level = PASSIVE_LEVEL;
  std::atomic<KPRIORITY> Priority{8};
  std::atomic<LONG> References{1};  ///< the first is the running thread's own

  // The locks it holds, oldest first.
  std::vector<const void*> Held;

  // The path that it is on, if that must not allocate or wait.
  const char* AllocationFreePath = nullptr;

  // Of the last kernel call, for reports.
  const char* LastCall = "";
  const void* LastObject = nullptr;

  // Its first use of freed pool memory that nobody has reported yet.
  FreedUse UsedFreed;

  // The scheduler's.
  std::condition_variable Resumed;
  std::binary_semaphore Baton{0};
  RunState State = RunState::Ready;
  bool IsWoken = false;
  unsigned Spins = 0;
  LONGLONG StalledUntil = 0;  ///< interrupt time; it doesn't run before
  bool SpinsForGood = false;  ///< its next turn of a spin loop is the first of endlessly many
  bool HasStopped = false;    ///< it does so: it isn't run any more
};

/// The calling thread.
[[nodiscard]] Thread& CurrentThread();

/// The calling thread; null if it has never called the kernel.
/// @par Callable in signal handlers
[[nodiscard]] Thread* FindCurrentThread();

/// Makes `thread` the calling machine thread's kernel thread; null forgets it.
///
/// @return the one before
Thread* SetCurrentThread(Thread* thread);

/// From now on, and until the call with -1, a machine thread that no world knows mustn't call the
/// kernel: it would run beside a simulation that knows nothing of it.
void CountSimulations(int change);

/// What a machine thread does for a kernel thread: `body`, then the thread object's end.
void RunThread(Thread& thread, const std::function<void()>& body);

/// Checks that a thread that ends is at passive level and holds no lock.
void CheckThreadEnd(const char* call, const Thread& self);

/// Drops a reference; the last one deletes the thread.
LONG_PTR DereferenceThread(Thread& thread);

/// Unwinds a thread that ends itself up to RunThread().
struct ThreadExit {};

}  // namespace lidcam::host
