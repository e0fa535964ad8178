#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// The parts of a run that can be left out: injected faults, stalls, and operations of its threads.
///
/// A part has the same name in each run with its seed. In a run without some of them an operation draws the random
/// numbers that it drew in the whole run, so that it stays the same operation.
class RunParts {
 public:
  /// All parts of a run; it records them.
  RunParts() = default;
  /// Those of a recorded run, without some.
  RunParts(const RunParts& whole, std::set<std::string> without)
      : states_(whole.states_), without_(std::move(without)), hasStates_(true) {}

  /// Whether the run has this fault or stall. Counts as an occurrence.
  bool Has(const std::string& name);

  /// Whether the run has this operation. Its random numbers are then those of the whole run.
  bool HasOperation(const std::string& name, Random& chance);

  /// Parts that occurred, in that order.
  [[nodiscard]] const std::vector<std::string>& Names() const { return names_; }

 private:
  std::map<std::string, Random> states_;  ///< ahead of each operation of the whole run
  std::set<std::string> without_;
  bool hasStates_ = false;
  std::vector<std::string> names_;
};

}  // namespace lidcam::scenarios
