#pragma once

#include <span>
#include <string_view>

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

/// One kind of run.
struct Scenario {
  std::string_view Name;
  std::string_view Purpose;  ///< one line for the user
  void (*Play)(Stage& stage);

  /// RunKey::Step may choose which of the counted calls fails.
  bool HasSteps = false;

  /// Options that the scenario always has.
  RunOptions Needs{};
};

/// All scenarios, in the order in which they are listed.
[[nodiscard]] std::span<const Scenario> Scenarios();

/// Whether the scenario's clients are applications, which any driver can serve. All others call the operations of
/// the driver that is compiled into this program.
[[nodiscard]] bool IsOfApplications(const Scenario& scenario);

/// @return null for an unknown name
[[nodiscard]] const Scenario* FindScenario(std::string_view name);

}  // namespace lidcam::scenarios
