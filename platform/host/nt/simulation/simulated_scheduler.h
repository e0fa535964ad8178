#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/split_mix.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/simulation/execution_context.h"
#include "platform/host/nt/simulation/schedule_record.h"
#include "platform/host/nt/simulation/thread_chooser.h"
#include "platform/host/nt/simulation/trace_hash.h"

namespace lidcam::host {

/// A switch point that a thread has reached.
struct SwitchPlace {
  std::uint64_t Number = 0;  ///< of the switch point in this world, from 1
  const Thread& Self;        ///< the thread
  PointSubject Subject;
};

struct SimulationOptions {
  std::uint64_t Seed = 1;

  SchedulerKind Kind = SchedulerKind::Walk;

  /// Number of consecutive switch points at one virtual time that counts as a livelock.
  std::uint64_t LongestStandstill = 1'000'000;

  /// Freed pool memory is never given out again, and its use is a violation. For short-lived
  /// worlds: each allocation takes pages of its own.
  bool KeepsFreedPool = true;

  /// What the world leaves behind, as one does that stops (pool memory, devices, work items), is freed with it: nothing
  /// may use it afterwards. The next world then has the pool's pages.
  bool FreesAllAtEnd = false;

  /// Adds switch points between the kernel calls: ahead of each access to a shared field, and
  /// behind each call that wakes a thread, releases a lock or hands something over.
  bool HasPreemptionPoints = false;

  /// No switch points at what 64-bit Windows has as instructions rather than as functions, so that the driver's
  /// compiled sources and its shipped image have the same schedule.
  bool HasImportsOnly = false;

  /// Called at each switch point, on the thread that reaches it: to inject an event from outside of
  /// the kernel, or to stall the thread. May be called under any lock and at any level, and mustn't
  /// call the kernel.
  ///
  /// @return how long the thread is stalled there while time advances, 100 ns; 0: not at all
  std::function<LONGLONG(const SwitchPlace& place)> AtSwitchPoint{};

  /// Called at each switch point, behind AtSwitchPoint and under the same rules.
  ///
  /// @return the seed of the random numbers that the scheduler draws from here on; nothing: it goes on with its own
  std::function<std::optional<std::uint64_t>(const SwitchPlace& place)> NewSeed{};

  /// Called whenever all threads wait and none is stalled, before time advances, on any thread. Mustn't
  /// call the kernel.
  ///
  /// @return a violation, which ends the world; empty without one
  std::function<std::string()> AtRest{};

  /// Chooses as this schedule did, in place of `Kind`; null: doesn't. Outlives the world.
  const ScheduleRecord* Follow = nullptr;

  /// Receives the world's schedule; null: it is not recorded. Outlives the world.
  ScheduleRecord* Record = nullptr;
};

/// Distinguishes one run from another.
struct SimulationOutcome {
  std::uint64_t TraceHash = 0;       ///< FNV-1a over (thread, call) of every switch point
  std::uint64_t ScheduleLength = 0;  ///< switch points passed
  LONGLONG Time = 0;                 ///< virtual time elapsed, 100 ns

  bool operator==(const SimulationOutcome&) const = default;
};

/// A world whose course is a function of its seed. One thread runs at a time; at every kernel call,
/// every interlocked operation and every turn of a spin loop the seed decides which thread runs
/// next, and time advances only when all threads wait or are stalled, directly to the next due
/// time.
///
/// The machine thread that makes it belongs to it, as thread 0, during its lifetime; all objects of
/// the simulation must be initialised within. Each other thread has a context of its own (a fiber),
/// which runs only while it has the one baton.
class SimulatedScheduler final : public Scheduler {
 public:
  explicit SimulatedScheduler(const SimulationOptions& options);
  ~SimulatedScheduler() override;

  /// Ends the simulation: lets all others run until they end or wait, and checks that nothing is
  /// left: no running thread, no referenced thread object, no set timer, nothing queued, no work
  /// item. Called by thread 0.
  SimulationOutcome Finish();

  /// The simulation's outcome so far, also after a violation. Called by thread 0.
  [[nodiscard]] SimulationOutcome OutcomeSoFar() const;

  [[nodiscard]] LONGLONG SystemTimeAtStart() const override;
  void SwitchPoint(Thread& self, const char* call, SwitchKind kind) override;
  void PreemptionPoint(Thread& self, const PointSubject& subject,
                       PreemptionKind kind) noexcept override;
  void Block(Thread& self, std::unique_lock<WorldLock>& guard) override;
  void Wake(Thread& thread) override;
  [[nodiscard]] std::uint64_t TieNumber() override { return chooser_->Tie(random_.Next()); }
  void StartMachine(Thread& thread, std::function<void()> body) override;
  void ThreadEnds(Thread& self, std::unique_lock<WorldLock>& guard) override;
  void Stop() override;
  [[nodiscard]] const Thread* HolderOf(const void* lock) const override;
  [[nodiscard]] std::string Describe() const override;

 private:
  using Guard = std::unique_lock<WorldLock>;

  template <typename Condition>
  Thread* PickWhere(Condition condition);
  [[nodiscard]] bool CanRun(const Thread& thread) const;
  void MakeReady(Thread& thread);
  void Suspend(Thread& thread, Thread::RunState state);
  [[nodiscard]] bool OnlySpins(const Thread& thread) const;
  Thread& ChooseNext(Guard& guard);
  void CheckAtRest(Guard& guard);
  [[nodiscard]] std::optional<LONGLONG> EndOfStalls() const;
  bool MoveTime();
  void PassBaton(Thread& self, Thread& next, Guard& guard);
  void PassBatonAndGoOn(Thread& self, Thread& next, Guard& guard);
  void Trace(const Thread& self, const char* call);
  bool BeginPoint(Thread& self, const PointSubject& subject);
  void NoteSpin(Thread& self, SwitchKind kind);
  void NoteProgress();
  void RunOthersToRest();
  void CheckNothingLeft() const;
  [[gnu::cold]] static void EndThreadUnlessItUnwinds();
  [[noreturn]] [[gnu::cold]] void ReportLivelock(const char* call, Guard& guard);
  [[noreturn]] void ReportUnderLock(const char* call, const std::string& what, Guard& guard);
  void StopOthers(Guard& guard);

  const SimulationOptions options_;
  base::SplitMix random_;
  std::unique_ptr<ThreadChooser> chooser_;
  std::uint64_t standstill_ = 0;
  std::uint64_t progress_ = 1;  // counts what ends the waiting of spinning threads
  TraceHash traceHash_;
  std::uint64_t scheduleLength_ = 0;
  bool isFinishing_ = false;
  bool isReportingUnderLock_ = false;
  Thread main_;
  Thread* previous_;
  Thread* running_;
  std::vector<Thread*> threads_;  // all that haven't ended, by number
  std::vector<Thread*> ready_;    // those that neither wait nor have ended, by number
  std::vector<Thread*> candidates_;
  LONGLONG lastStallEnds_ = 0;  // of all that have begun
  ExecutionContext mainContext_;
  std::vector<std::unique_ptr<ExecutionContext>> contexts_;  // of all other threads, ended or not
};

/// Runs `body` as thread 0 of a simulation and ends it.
SimulationOutcome Simulate(const SimulationOptions& options, const std::function<void()>& body);

}  // namespace lidcam::host
