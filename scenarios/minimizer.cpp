#include "scenarios/minimizer.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>
#include <vector>

namespace lidcam::scenarios {
namespace {

using Deviations = std::vector<host::Deviation>;

// The failed check without addresses and numbers, which depend on the schedule.
std::string KindOf(const RunResult& result) {
  std::string kind;
  for (std::size_t i = 0; i < result.What.size(); ++i) {
    if (result.What.compare(i, 2, "0x") == 0) {
      i += 2;
      while (i < result.What.size() &&
             std::isxdigit(static_cast<unsigned char>(result.What[i])) != 0)
        ++i;
    }
    if (i < result.What.size() && std::isdigit(static_cast<unsigned char>(result.What[i])) == 0)
      kind += result.What[i];
  }
  return kind;
}

/// Delta debugging over the deviations of one run.
class Search {
 public:
  Search(const Scenario& scenario, const RunKey& key, const std::function<bool(std::size_t)>& seen)
      : scenario_(scenario), key_(key), seen_(seen) {}

  MinimizedRun Run() {
    host::ScheduleRecord whole;
    best_.Result = RunScenario(scenario_, key_, {.Record = &whole});
    best_.Runs = 1;
    best_.Before = whole.Deviations.size();
    if (best_.Result.Outcome != Verdict::Failed) return std::move(best_);
    kind_ = KindOf(best_.Result);
    ties_ = whole.Ties;
    if (!Fails(whole.Deviations)) {
      best_.Result.Outcome = Verdict::Passed;
      return std::move(best_);
    }
    best_.IsMinimal = Fails({}) || RemoveParts();
    return std::move(best_);
  }

 private:
  // Leaves out ever smaller parts. @return false if it was stopped
  bool RemoveParts() {
    std::size_t size = (best_.Schedule.Deviations.size() + 1) / 2;
    while (true) {
      bool isSmaller = false;
      for (std::size_t at = 0; at < best_.Schedule.Deviations.size();) {
        if (!seen_(best_.Schedule.Deviations.size())) return false;
        const std::size_t before = best_.Schedule.Deviations.size();
        if (Fails(Without(at, size))) {
          isSmaller = true;
          if (best_.Schedule.Deviations.size() >= before)
            return true;  // can't be: a part was left out
        } else {
          at += size;
        }
      }
      if (size == 1 && !isSmaller) return true;
      size = std::max<std::size_t>(1, size / 2);
    }
  }

  [[nodiscard]] Deviations Without(std::size_t at, std::size_t size) const {
    Deviations rest = best_.Schedule.Deviations;
    const auto begin = rest.begin() + static_cast<std::ptrdiff_t>(at);
    rest.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, rest.size() - at)));
    return rest;
  }

  // Also keeps the schedule that was played, if it fails as the first one.
  bool Fails(Deviations deviations) {
    const host::ScheduleRecord wanted{std::move(deviations), ties_, {}};
    host::ScheduleRecord played;
    const RunResult result =
        RunScenario(scenario_, key_, {.KeepsTrace = true, .Follow = &wanted, .Record = &played});
    ++best_.Runs;
    if (result.Outcome != Verdict::Failed || KindOf(result) != kind_) return false;
    best_.Result = result;
    best_.Schedule = std::move(played);
    return true;
  }

  const Scenario& scenario_;
  const RunKey& key_;
  const std::function<bool(std::size_t)>& seen_;
  std::string kind_;
  std::vector<std::uint64_t> ties_;
  MinimizedRun best_;
};

}  // namespace

MinimizedRun Minimize(const Scenario& scenario, const RunKey& key,
                      const std::function<bool(std::size_t left)>& seen) {
  return Search(scenario, key, seen).Run();
}

}  // namespace lidcam::scenarios
