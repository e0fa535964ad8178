#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::fuzz {

/// The time limit of an input in virtual time, where waiting costs nothing: switch points. An input
/// that passes more ends the process with what every thread does, so that a hang is a finding and not
/// a wait.
class StepLimit {
 public:
  /// Far above what any input of the corpora takes, and below what a slow machine does in a minute.
  static constexpr std::uint64_t kSteps = 3'000'000;

  /// The options of a world that lives under this limit.
  [[nodiscard]] host::SimulationOptions WorldOptions(std::uint64_t seed) {
    return {.Seed = seed, .AtSwitchPoint = [this](const host::SwitchPlace& place) {
              Look(place.Number);
              return LONGLONG{0};
            }};
  }

  /// The limit holds anew.
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
