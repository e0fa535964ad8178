#include "platform/host/nt/simulation/thread_chooser.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace lidcam::host {
namespace {

// Some races need many switches, others a thread that runs long without one: the seed chooses. Powers of two.
constexpr std::array<std::uint64_t, 4> kSwitchOneIn{1, 2, 4, 16};

// Choices until the running thread drops below all others.
constexpr std::uint64_t kShortestBurst = 8;
constexpr std::uint64_t kLongestBurst = 512;

class Walk final : public ThreadChooser {
 public:
  explicit Walk(base::SplitMix& random)
      : random_(random), switchOneIn_(kSwitchOneIn[random.Next() % kSwitchOneIn.size()]) {}

  [[nodiscard]] bool KeepsBaton() override {
    return switchOneIn_ != 1 && (random_.Next() & (switchOneIn_ - 1)) != 0;
  }

  [[nodiscard]] Thread& Choose(std::span<Thread* const> candidates) override {
    const std::uint64_t number = random_.Next();
    return candidates.size() == 1
               ? *candidates.front()
               : *candidates[static_cast<std::size_t>(number % candidates.size())];
  }

 private:
  base::SplitMix& random_;
  const std::uint64_t switchOneIn_;
};

/// Ranks of threads. Those that are drawn are above those of threads that were dropped.
class Ranks {
 public:
  explicit Ranks(base::SplitMix& random) : random_(random) {}

  void Draw(Thread& thread) { thread.Rank = random_.Next() | kDrawn; }
  void DropBelowAll(Thread& thread) { thread.Rank = --lowest_; }

  [[nodiscard]] static Thread& HighestOf(std::span<Thread* const> candidates) {
    return **std::ranges::max_element(candidates, {},
                                      [](const Thread* thread) { return thread->Rank; });
  }

 private:
  static constexpr std::uint64_t kDrawn = std::uint64_t{1} << 63U;

  base::SplitMix& random_;
  std::uint64_t lowest_ = kDrawn;
};

class Burst final : public ThreadChooser {
 public:
  explicit Burst(base::SplitMix& random) : random_(random), ranks_(random) { MoveTime(); }

  void Spin(Thread& thread) override {
    if (thread.RankedSince == times_) ranks_.DropBelowAll(thread);
  }

  void MoveTime() override {
    ++times_;
    PlanChange();
  }

  [[nodiscard]] Thread& Choose(std::span<Thread* const> candidates) override {
    for (Thread* const thread : candidates) {
      if (thread->RankedSince == times_) continue;
      thread->RankedSince = times_;
      ranks_.Draw(*thread);
    }
    if (--choicesToChange_ == 0) {
      ranks_.DropBelowAll(Ranks::HighestOf(candidates));
      PlanChange();
    }
    return Ranks::HighestOf(candidates);
  }

 private:
  void PlanChange() { choicesToChange_ = random_.Between(kShortestBurst, kLongestBurst); }

  base::SplitMix& random_;
  Ranks ranks_;
  std::uint64_t times_ = 0;
  std::uint64_t choicesToChange_ = 0;
};

class Priorities final : public ThreadChooser {
 public:
  explicit Priorities(base::SplitMix& random) : ranks_(random) {}

  void Reach(Thread& thread, const void* object) override {
    ranks_.Draw(thread);
    thread.NextObject = object;
  }

  void Spin(Thread& thread) override {
    ranks_.DropBelowAll(thread);
    thread.NextObject = nullptr;
  }

  [[nodiscard]] Thread& Choose(std::span<Thread* const> candidates) override {
    for (Thread* const thread : candidates) {
      if (thread->Rank == 0) ranks_.Draw(*thread);
    }
    Thread& chosen = Ranks::HighestOf(candidates);
    if (chosen.NextObject == nullptr) return chosen;
    for (Thread* const thread : candidates) {
      if (thread != &chosen && thread->NextObject == chosen.NextObject) ranks_.Draw(*thread);
    }
    return chosen;
  }

 private:
  Ranks ranks_;
};

}  // namespace

std::string_view ToString(SchedulerKind kind) {
  switch (kind) {
    case SchedulerKind::Walk:
      return "walk";
    case SchedulerKind::Burst:
      return "burst";
    case SchedulerKind::Priorities:
      return "priorities";
  }
  return "";
}

std::unique_ptr<ThreadChooser> MakeThreadChooser(SchedulerKind kind, base::SplitMix& random) {
  switch (kind) {
    case SchedulerKind::Walk:
      break;
    case SchedulerKind::Burst:
      return std::make_unique<Burst>(random);
    case SchedulerKind::Priorities:
      return std::make_unique<Priorities>(random);
  }
  return std::make_unique<Walk>(random);
}

}  // namespace lidcam::host
