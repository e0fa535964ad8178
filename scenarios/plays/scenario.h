#pragma once

#include <span>
#include <string_view>

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

/// One kind of trouble.
struct Scenario {
  std::string_view Name;
  std::string_view Purpose;  ///< one line for the user
  void (*Play)(Stage& stage);

  /// The scenario can be told which of the calls it counts is to fail: RunKey::Step.
  bool HasSteps = false;

  /// What the scenario has whether or not it is asked for.
  RunOptions Needs{};
};

/// All of them, in the order in which they are listed.
[[nodiscard]] std::span<const Scenario> Scenarios();

/// @return null if there is none of this name
[[nodiscard]] const Scenario* FindScenario(std::string_view name);

}  // namespace lidcam::scenarios
