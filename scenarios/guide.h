#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "scenarios/runner.h"

namespace lidcam::scenarios {

/// Plays runs that branch. At the first sight of a pair of switch point and driver state the process forks: its child
/// goes on from there with other random numbers, so that rare states are left on more than one way. What has been seen
/// is kept over all runs of the guide.
///
/// One at a time in a process, and for simulations whose threads share one machine thread.
class Guide {
 public:
  /// @param most  branches of a run; at least 1
  /// Throws std::bad_alloc.
  explicit Guide(std::size_t most);
  Guide(const Guide&) = delete;
  Guide& operator=(const Guide&) = delete;
  ~Guide();

  /// Whether this program's simulations can branch: a process with several machine threads can't fork.
  [[nodiscard]] static bool IsPossible();

  /// Plays a run and its branches, each of which is a run by its key alone.
  ///
  /// @param take  receives the result of the run, and then those of its branches, without report and trace. One whose
  ///              process has died has failed.
  void Play(const Scenario& scenario, const RunKey& key,
            const std::function<void(const RunResult& result)>& take);

  /// Pairs seen so far.
  [[nodiscard]] std::uint64_t Pairs() const;

 private:
  struct Branch;
  struct Shared;

  std::optional<std::uint64_t> AtPoint(const host::SwitchPlace& place, std::uint64_t driverState);
  [[nodiscard]] bool MayBranch(std::uint64_t point) const;
  std::optional<std::uint64_t> Fork(std::uint64_t point);
  void Await(int child, Branch& branch);
  [[noreturn]] void EndBranch(const RunResult* result);

  const std::size_t most_;
  Shared* const shared_;
  Branch* branch_ = nullptr;  ///< this process's own; null in the first one
  std::uint64_t seed_ = 0;
  std::vector<Reseeding> reseedings_;
  std::size_t ownBranches_ = 0;
  std::uint64_t nextPoint_ = 0;  ///< switch point from which the process may branch again
};

}  // namespace lidcam::scenarios
