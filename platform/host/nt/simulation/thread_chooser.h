#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "base/split_mix.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {

/// The rule by which a simulated scheduler chooses the thread that runs next. Each finds faults that the others
/// hardly find.
enum class SchedulerKind : std::uint8_t {
  /// Any thread that can run; how often threads are switched depends on the seed.
  Walk,

  /// The thread with the highest priority. Priorities are drawn anew whenever time advances, and after 8 to 512
  /// choices the running thread drops below all others: threads run long, in any order.
  Burst,

  /// The thread whose next operation has the highest priority. Each operation draws its own, and draws it anew when
  /// another thread operates on the same object: operations on one object occur in any order.
  Priorities,
};

/// "walk", "burst", "priorities"
[[nodiscard]] std::string_view ToString(SchedulerKind kind);

/// Chooses the threads of one world.
/// @par Under the world's lock
class ThreadChooser {
 public:
  ThreadChooser() = default;
  ThreadChooser(const ThreadChooser&) = delete;
  ThreadChooser& operator=(const ThreadChooser&) = delete;
  virtual ~ThreadChooser() = default;

  /// A thread that can run is at a switch point: whether it continues without a choice.
  [[nodiscard]] virtual bool KeepsBaton() { return false; }

  /// A thread has reached a switch point ahead of an operation, or a wait.
  ///
  /// @param object  of the operation; null if it has none or is unknown
  virtual void Reach(Thread&, const void* /*object*/) {}

  /// A thread has made a turn of a spin loop: the thread that it waits for should run.
  virtual void Spin(Thread&) {}

  virtual void MoveTime() {}

  /// The number that orders an entry among those that are due at the same time.
  ///
  /// @param number  a random one
  [[nodiscard]] virtual std::uint64_t Tie(std::uint64_t number) { return number; }

  /// @param candidates  the threads that can run, by number; at least one
  [[nodiscard]] virtual Thread& Choose(std::span<Thread* const> candidates) = 0;
};

/// @param random  the world's numbers; outlives the result
[[nodiscard]] std::unique_ptr<ThreadChooser> MakeThreadChooser(SchedulerKind kind,
                                                               base::SplitMix& random);

}  // namespace lidcam::host
