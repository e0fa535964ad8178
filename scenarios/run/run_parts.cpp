#include "scenarios/run/run_parts.h"

namespace lidcam::scenarios {

bool RunParts::Has(const std::string& name) {
  if (without_.contains(name)) return false;
  names_.push_back(name);
  return true;
}

// An operation that the whole run did not reach draws what comes next.
bool RunParts::HasOperation(const std::string& name, Random& chance) {
  if (!Has(name)) return false;
  if (!hasStates_) {
    states_.insert_or_assign(name, chance);
    return true;
  }
  const auto state = states_.find(name);
  if (state != states_.end()) chance = state->second;
  return true;
}

}  // namespace lidcam::scenarios
