#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::fuzz {

/// The limit of an input in virtual time, where waiting costs nothing: a number of switch points.
/// An input that exceeds it ends the process with a list of the threads' states, so that a hang is
/// a finding.
class StepLimit {
 public:
  /// Far above the need of all inputs of the corpora, and less than a minute on a slow machine.
  static constexpr std::uint64_t kSteps = 3'000'000;

  /// The options of a world with this limit.
  [[nodiscard]] host::SimulationOptions WorldOptions(std::uint64_t seed) {
    return {.Seed = seed, .AtSwitchPoint = [this](const host::SwitchPlace& place) {
              Look(place.Number);
              return LONGLONG{0};
            }};
  }

  /// Restarts the count.
  void BeginInput() { first_ = last_; }

 private:
  void Look(std::uint64_t number) {
    last_ = number;
    if (number - first_ <= kSteps) return;
    std::fprintf(stderr, "hang: one input takes more than %llu switch points\n%s",
                 static_cast<unsigned long long>(kSteps), host::CurrentWorld().Describe().c_str());
    std::abort();
  }

  std::uint64_t first_ = 0;
  std::uint64_t last_ = 0;
};

}  // namespace lidcam::fuzz
