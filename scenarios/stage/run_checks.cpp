#include "scenarios/stage/run_checks.h"

#include <algorithm>
#include <iterator>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "scenarios/run/status_text.h"

namespace lidcam::scenarios {

void RunChecks::Require(bool holds, const std::string& what) {
  if (!holds && WasStalled()) {
    cutShort_ = what;
    host::EndWorld();
  }
  RequireAlways(holds, what);
}

void RunChecks::RequireAlways(bool holds, const std::string& what) {
  if (holds) return;
  host::ReportViolation("simulation", what + " (at step '" + own_.Step + "')");
}

void RunChecks::RequireStatus(const char* operation, NTSTATUS status,
                              std::initializer_list<NTSTATUS> allowed) {
  const bool isAllowed = std::find(allowed.begin(), allowed.end(), status) != allowed.end();
  Require(isAllowed, std::string(operation) + " answers " + HexOf(status));
}

void RunChecks::Begin(const char* name) {
  own_ = {name, host::CurrentWorld().Now(), false, &host::CurrentThread()};
  ++steps_;
}

std::vector<const Activity*> RunChecks::Activities() const {
  std::vector<const Activity*> activities;
  if (!own_.IsOver) activities.push_back(&own_);
  std::ranges::copy_if(others_, std::back_inserter(activities),
                       [](const Activity* activity) { return !activity->IsOver; });
  return activities;
}

const Activity& RunChecks::Longest() const {
  const std::vector<const Activity*> activities = Activities();
  const auto longest = std::ranges::min_element(
      activities, {}, [](const Activity* activity) { return activity->Began; });
  return longest != activities.end() ? **longest : own_;
}

bool RunChecks::IsDoing(std::string_view step) const {
  return std::ranges::any_of(Activities(),
                             [step](const Activity* activity) { return activity->Step == step; });
}

LONGLONG RunChecks::CountedFrom(LONGLONG time) const {
  return std::max(time, stalls_.End());
}

}  // namespace lidcam::scenarios
