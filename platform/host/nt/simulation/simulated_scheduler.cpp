#include "platform/host/nt/simulation/simulated_scheduler.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <span>
#include <utility>

#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

// The first of January 2020.
constexpr LONGLONG kSystemTimeAtStart = 132'223'104'000'000'000;

// Turns of its loop after which a spinning thread counts as waiting. Loops with a limit of their
// own are shorter.
constexpr unsigned kSpinsOfAWaiter = 64;

const char* StateText(const Thread& thread) {
  if (thread.HasStopped) return "has stopped";
  return thread.State == Thread::RunState::Blocked ? "waits" : "ready";
}

std::unique_ptr<ThreadChooser> ChooserOf(const SimulationOptions& options, base::SplitMix& random) {
  std::unique_ptr<ThreadChooser> chooser = MakeThreadChooser(options.Kind, random);
  if (options.Record == nullptr) return chooser;
  return options.Follow != nullptr ? MakeFollowingChooser(*options.Follow, *options.Record)
                                   : MakeRecordingChooser(std::move(chooser), *options.Record);
}

// A destructor that runs during unwinding must not throw a second exception.
bool IsUnwinding() {
  return std::uncaught_exceptions() != 0;
}

}  // namespace

SimulatedScheduler::SimulatedScheduler(const SimulationOptions& options)
    : Scheduler(false),
      options_(options),
      random_(options.Seed),
      chooser_(ChooserOf(options, random_)),
      main_(*this, nextThread_++, "main"),
      previous_(SetCurrentThread(&main_)),
      running_(&main_),
      threads_{&main_},
      ready_{&main_} {
  main_.Context = &mainContext_;
  if (options.KeepsFreedPool) arena_ = PoolArena::Make();
  if (options.HasPreemptionPoints) ++g_preemptiveSimulations;
  // A lock of an earlier world may have had this address.
  ForgetLockOrder(CancelLock());
  CountSimulations(1);
}

SimulatedScheduler::~SimulatedScheduler() {
  {
    Guard guard(Lock());
    StopOthers(guard);
  }
  contexts_.clear();
  // After a violation their references are never released.
  for (const void* const object : ThreadObjectsOfWorld(*this)) {
    if (object != &main_.Object) delete static_cast<const KTHREAD*>(object)->Host;
  }
  ForgetWorld(*this);
  ForgetIrpsOfWorld(*this);
  ForgetFilesOfWorld(*this);
  if (options_.FreesAllAtEnd) {
    DeleteObjectsLeft();
    FreePoolOfWorld(*this);
  } else {
    ForgetPoolOfWorld(*this);
  }
  if (arena_.use_count() > 1) arena_->Retire();
  SetCurrentThread(previous_);
  CountSimulations(-1);
  if (options_.HasPreemptionPoints) --g_preemptiveSimulations;
}

LONGLONG SimulatedScheduler::SystemTimeAtStart() const {
  return kSystemTimeAtStart;
}

// The chosen one of the threads that are ready and fulfil a condition; null if none does.
template <typename Condition>
Thread* SimulatedScheduler::PickWhere(Condition condition) {
  if (candidates_.size() < ready_.size()) candidates_.resize(ready_.size());
  std::size_t count = 0;
  for (Thread* const thread : ready_) {
    candidates_[count] = thread;
    if (condition(*thread)) ++count;
  }
  if (count == 0) return nullptr;
  return &chooser_->Choose(std::span(candidates_).first(count));
}

// Of a thread that is ready.
bool SimulatedScheduler::CanRun(const Thread& thread) const {
  return thread.StalledUntil <= now_ && !thread.HasStopped;
}

void SimulatedScheduler::MakeReady(Thread& thread) {
  if (std::exchange(thread.State, Thread::RunState::Ready) == Thread::RunState::Ready) return;
  const auto place = std::ranges::lower_bound(ready_, thread.Number, {},
                                              [](const Thread* other) { return other->Number; });
  ready_.insert(place, &thread);
}

void SimulatedScheduler::Suspend(Thread& thread, Thread::RunState state) {
  thread.State = state;
  std::erase(ready_, &thread);
}

bool SimulatedScheduler::OnlySpins(const Thread& thread) const {
  return thread.SpinsSince == progress_ && thread.Spins >= kSpinsOfAWaiter;
}

void SimulatedScheduler::Trace(const Thread& self, const char* call) {
  traceHash_.Add(self.Number, call);
  ++scheduleLength_;
}

// Spinning threads may be waiting for this progress: their spins are counted anew.
void SimulatedScheduler::NoteProgress() {
  ++progress_;
}

void SimulatedScheduler::NoteSpin(Thread& self, SwitchKind kind) {
  if (kind != SwitchKind::Spin) {
    NoteProgress();
    chooser_->Reach(self, self.LastObject);
    return;
  }
  chooser_->Spin(self);
  if (std::exchange(self.SpinsSince, progress_) != progress_) self.Spins = 0;
  ++self.Spins;
}

namespace {

bool IsInstruction(std::string_view call) {
  constexpr std::array kInstructions{calls::kInterlocked,
                                     calls::kKeGetCurrentIrql,
                                     calls::kKeGetCurrentThread,
                                     calls::kKeInitializeSpinLock,
                                     calls::kKeSaveFloatingPointState,
                                     calls::kKeRestoreFloatingPointState};
  return std::ranges::any_of(kInstructions,
                             [call](const CallRule& rule) { return call == rule.Name; });
}

}  // namespace

// @return whether the thread is stalled at the point
bool SimulatedScheduler::BeginPoint(Thread& self, const PointSubject& subject) {
  const SwitchPlace place{scheduleLength_ + 1, self, subject};
  const LONGLONG time = options_.AtSwitchPoint ? options_.AtSwitchPoint(place) : 0;
  if (options_.NewSeed) {
    if (const std::optional<std::uint64_t> seed = options_.NewSeed(place)) {
      random_ = base::SplitMix(*seed);
    }
  }
  if (time <= 0) return false;
  self.StalledUntil = now_ + time;
  lastStallEnds_ = std::max(lastStallEnds_, self.StalledUntil);
  return true;
}

void SimulatedScheduler::SwitchPoint(Thread& self, const char* call, SwitchKind kind) {
  if (isStopping_) return EndThreadUnlessItUnwinds();
  if (options_.HasImportsOnly && IsInstruction(call)) return;
  const bool isStalled = BeginPoint(self, {call, self.LastObject});
  Guard guard(Lock());
  Trace(self, call);
  NoteSpin(self, kind);
  if (++standstill_ > options_.LongestStandstill) ReportLivelock(call, guard);
  if (!isStalled && kind == SwitchKind::Call && chooser_->KeepsBaton()) return;
  PassBatonAndGoOn(self, ChooseNext(guard), guard);
}

// In a world that stops.
void SimulatedScheduler::EndThreadUnlessItUnwinds() {
  if (!IsUnwinding()) throw KernelStopped{};
}

void SimulatedScheduler::ReportLivelock(const char* call, Guard& guard) {
  ReportUnderLock(
      call,
      "livelock: " + std::to_string(options_.LongestStandstill) + " switch points at one time",
      guard);
}

// The caller can run or is stalled: a thread that can run always exists, and nothing is reported. A
// standstill is reported at the next call.
void SimulatedScheduler::PreemptionPoint(Thread& self, const PointSubject& subject,
                                         PreemptionKind kind) noexcept {
  if (isStopping_ || !options_.HasPreemptionPoints) return;
  const bool isStalled = BeginPoint(self, subject);
  Guard guard(Lock());
  Trace(self, subject.Name);
  if (kind != PreemptionKind::Load) NoteProgress();
  ++standstill_;
  // What follows a call that has ended is unknown.
  chooser_->Reach(self, kind == PreemptionKind::Release ? nullptr : subject.Object);
  if (!isStalled && chooser_->KeepsBaton()) return;
  PassBaton(self, ChooseNext(guard), guard);
  if (isStopping_) MakeReady(self);
}

void SimulatedScheduler::Block(Thread& self, Guard& guard) {
  if (isStopping_) return EndThreadUnlessItUnwinds();
  Suspend(self, Thread::RunState::Blocked);
  chooser_->Reach(self, nullptr);
  PassBatonAndGoOn(self, ChooseNext(guard), guard);
}

void SimulatedScheduler::Wake(Thread& thread) {
  MakeReady(thread);
}

// The next thread runs without the lock held: it takes the lock at once.
void SimulatedScheduler::PassBaton(Thread& self, Thread& next, Guard& guard) {
  running_ = &next;
  if (&next == &self) return;
  guard.unlock();
  self.Context->SwitchTo(*next.Context);
  SetCurrentThread(&self);
  SetLevel(self, self.Level);
  guard.lock();
}

void SimulatedScheduler::PassBatonAndGoOn(Thread& self, Thread& next, Guard& guard) {
  PassBaton(self, next, guard);
  if (!isStopping_) return;
  MakeReady(self);
  if (!IsUnwinding()) throw KernelStopped{};
}

// End of the stall that ends first; none if no thread is stalled.
std::optional<LONGLONG> SimulatedScheduler::EndOfStalls() const {
  if (lastStallEnds_ <= now_) return std::nullopt;
  std::optional<LONGLONG> end;
  for (const Thread* const thread : threads_) {
    if (thread->StalledUntil <= now_) continue;
    end = std::min(end.value_or(thread->StalledUntil), thread->StalledUntil);
  }
  return end;
}

// Virtual time advances directly to the next due time.
bool SimulatedScheduler::MoveTime() {
  std::optional<LONGLONG> due = Timers().Earliest();
  const std::optional<LONGLONG> stallEnds = EndOfStalls();
  if (stallEnds) due = std::min(due.value_or(*stallEnds), *stallEnds);
  if (!due) return false;
  if (*due > now_) {
    now_ = *due;
    standstill_ = 0;
    chooser_->MoveTime();
  }
  NoteProgress();
  ExpireTimers(*this);
  return true;
}

// A thread that is in a preemption point can run or is stalled: nothing is reported in one.
void SimulatedScheduler::CheckAtRest(Guard& guard) {
  const bool isAtRest = std::ranges::all_of(threads_, [this](const Thread* thread) {
    return thread->StalledUntil <= now_ &&
           (thread->HasStopped || thread->State == Thread::RunState::Blocked);
  });
  if (!isAtRest) return;
  const std::string wrong = options_.AtRest();
  if (!wrong.empty()) ReportUnderLock("simulation", wrong, guard);
}

Thread& SimulatedScheduler::ChooseNext(Guard& guard) {
  // The youngest ends first: threads use objects of the threads that made them.
  if (isStopping_) return *threads_.back();
  while (true) {
    Thread* const eager =
        PickWhere([this](const Thread& thread) { return CanRun(thread) && !OnlySpins(thread); });
    if (eager != nullptr) return *eager;
    const auto canRun = [this](const Thread& thread) { return CanRun(thread); };
    const auto canNotRun = [this](const Thread* thread) { return !CanRun(*thread); };
    if (isFinishing_ && std::ranges::all_of(ready_, canNotRun) && !EndOfStalls()) return main_;
    if (options_.AtRest) CheckAtRest(guard);
    if (MoveTime()) continue;
    // Threads that only spin may leave their loops; the limit of the standstill detects if not.
    if (Thread* const spinning = PickWhere(canRun)) return *spinning;
    ReportUnderLock("scheduler", "deadlock: every thread waits and no time limit runs", guard);
  }
}

void SimulatedScheduler::StartMachine(Thread& thread, std::function<void()> body) {
  threads_.push_back(&thread);
  ready_.push_back(&thread);
  contexts_.push_back(
      std::make_unique<ExecutionContext>([this, run = std::move(body)]() -> ExecutionContext& {
        run();
        return *running_->Context;
      }));
  thread.Context = contexts_.back().get();
}

void SimulatedScheduler::ThreadEnds(Thread& self, Guard& guard) {
  Suspend(self, Thread::RunState::Ended);
  std::erase(threads_, &self);
  try {
    running_ = &ChooseNext(guard);
  } catch (const KernelStopped&) {  // no thread could run any more
    running_ = threads_.back();
  }
}

void SimulatedScheduler::RunOthersToRest() {
  Guard guard(Lock());
  isFinishing_ = true;
  Suspend(main_, Thread::RunState::Blocked);
  PassBatonAndGoOn(main_, ChooseNext(guard), guard);
  MakeReady(main_);
}

void SimulatedScheduler::CheckNothingLeft() const {
  if (main_.Level != PASSIVE_LEVEL || !main_.Held.empty()) {
    ReportViolation("end of the simulation", "thread 0 is at level " + std::to_string(main_.Level) +
                                                 " with " + std::to_string(main_.Held.size()) +
                                                 " lock(s)");
  }
  for (const Thread* const thread : threads_) {
    if (thread->UsedFreed.Block != nullptr) {
      ReportViolation("end of the simulation", DescribeFreedUse(thread->UsedFreed));
    }
    if (thread == &main_ || thread->IsService) continue;
    ReportViolation("end of the simulation", "thread " + std::to_string(thread->Number) +
                                                 " still runs, last seen in " + thread->LastCall);
  }
  const std::string pending = FindPendingObject(*this);
  if (!pending.empty()) ReportViolation("end of the simulation", pending + " is still pending");
  const std::string kept = FindKeptObject(*this);
  if (!kept.empty()) ReportViolation("end of the simulation", kept + " was never released");
  const std::string file = FindOpenFile(*this);
  if (!file.empty()) ReportViolation("end of the simulation", file + " was never closed");
  const std::string request = FindKeptIrp(*this);
  if (!request.empty()) ReportViolation("end of the simulation", request + " was never freed");
  const std::string blocks = DescribePoolOfWorld(*this);
  if (!blocks.empty()) ReportViolation("end of the simulation", "never freed: " + blocks);
}

SimulationOutcome SimulatedScheduler::Finish() {
  RunOthersToRest();
  CheckNothingLeft();
  return OutcomeSoFar();
}

SimulationOutcome SimulatedScheduler::OutcomeSoFar() const {
  return {.TraceHash = traceHash_.Value(), .ScheduleLength = scheduleLength_, .Time = now_};
}

// Thread 0 unwinds last: the others use objects on its stack.
void SimulatedScheduler::Stop() {
  isStopping_ = true;
  if (running_ != &main_ || isReportingUnderLock_) return;
  Guard guard(Lock());
  StopOthers(guard);
}

void SimulatedScheduler::ReportUnderLock(const char* call, const std::string& what, Guard& guard) {
  isReportingUnderLock_ = true;
  try {
    ReportViolation(call, what);
  } catch (const KernelStopped&) {
    if (running_ == &main_) StopOthers(guard);
    throw;
  }
}

void SimulatedScheduler::StopOthers(Guard& guard) {
  isStopping_ = true;
  while (threads_.size() > 1) {
    PassBaton(main_, *threads_.back(), guard);
  }
}

const Thread* SimulatedScheduler::HolderOf(const void* lock) const {
  for (const Thread* const thread : threads_) {
    if (std::ranges::find(thread->Held, lock) != thread->Held.end()) return thread;
  }
  return nullptr;
}

std::string SimulatedScheduler::Describe() const {
  std::string text = "simulation with seed " + std::to_string(options_.Seed) + ", " +
                     std::to_string(scheduleLength_) + " switch points\n";
  for (const Thread* const thread : threads_) {
    std::array<char, 200> line{};
    std::snprintf(line.data(), line.size(),
                  "  thread %u (%s) %s, level %u, %zu lock(s), in %s %p\n", thread->Number,
                  thread->Name.c_str(), StateText(*thread), thread->Level, thread->Held.size(),
                  thread->LastCall, thread->LastObject);
    text += line.data();
  }
  return text;
}

SimulationOutcome Simulate(const SimulationOptions& options, const std::function<void()>& body) {
  SimulatedScheduler simulation(options);
  body();
  return simulation.Finish();
}

}  // namespace lidcam::host
