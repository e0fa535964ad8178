#include "scenarios/minimizer.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <set>
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

// Leaves out ever smaller parts of a list, by delta debugging.
//
// @param left   its present length; false stops the search
// @param isSo   whether the list without `size` entries from `at` on still has what is searched; if so, it becomes the
//               list
// @return false if it was stopped
bool RemoveParts(const std::function<std::size_t()>& left, const std::function<bool()>& goesOn,
                 const std::function<bool(std::size_t at, std::size_t size)>& isSo) {
  std::size_t size = (left() + 1) / 2;
  while (size != 0) {
    bool isSmaller = false;
    for (std::size_t at = 0; at < left();) {
      if (!goesOn()) return false;
      const std::size_t before = left();
      if (!isSo(at, size)) {
        at += size;
        continue;
      }
      isSmaller = true;
      if (left() >= before) return true;  // what was left out is replaced by as much
    }
    if (size == 1 && !isSmaller) return true;
    size = std::max<std::size_t>(1, size / 2);
  }
  return true;
}

/// Delta debugging over the deviations of one run, and over its faults and operations.
class Search {
 public:
  Search(const Scenario& scenario, const RunKey& key, const std::function<bool(std::size_t)>& seen)
      : scenario_(scenario), key_(key), seen_(seen) {}

  MinimizedRun Run() {
    host::ScheduleRecord whole;
    best_.Result = RunScenario(scenario_, key_, {.Record = &whole, .Parts = &whole_});
    best_.Runs = 1;
    best_.Before = whole.Deviations.size();
    best_.PartsBefore = whole_.Names().size();
    if (best_.Result.Outcome != Verdict::Failed) return std::move(best_);
    kind_ = KindOf(best_.Result);
    ties_ = whole.Ties;
    if (!Fails(whole.Deviations, {})) {
      best_.Result.Outcome = Verdict::Passed;
      return std::move(best_);
    }
    best_.IsMinimal = RemoveAll();
    return std::move(best_);
  }

 private:
  [[nodiscard]] std::size_t Left() const {
    return best_.Schedule.Deviations.size() + best_.Parts.size();
  }
  [[nodiscard]] bool GoesOn() const { return seen_(Left()); }

  // What one kind leaves may make more of the other one needless. @return false if it was stopped
  bool RemoveAll() {
    for (std::size_t before = 0; before != Left();) {
      before = Left();
      if (!RemoveDeviations() || !RemoveFaultsAndOperations()) return false;
    }
    return true;
  }

  // @return false if it was stopped
  bool RemoveDeviations() {
    if (best_.Schedule.Deviations.empty() || Fails({}, without_)) return true;
    return RemoveParts([this] { return best_.Schedule.Deviations.size(); },
                       [this] { return GoesOn(); },
                       [this](std::size_t at, std::size_t size) {
                         return Fails(Without(best_.Schedule.Deviations, at, size), without_);
                       });
  }

  // The rest keeps its deviations: their places count the choices of a thread, so that the first ones go last.
  bool RemoveFaultsAndOperations() {
    return RemoveParts([this] { return best_.Parts.size(); }, [this] { return GoesOn(); },
                       [this](std::size_t at, std::size_t size) {
                         const std::size_t end = best_.Parts.size() - at;
                         std::set<std::string> without = without_;
                         for (std::size_t i = end - std::min(size, end); i < end; ++i) {
                           without.insert(best_.Parts[i]);
                         }
                         return Fails(best_.Schedule.Deviations, without);
                       });
  }

  [[nodiscard]] static Deviations Without(Deviations rest, std::size_t at, std::size_t size) {
    const auto begin = rest.begin() + static_cast<std::ptrdiff_t>(at);
    rest.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, rest.size() - at)));
    return rest;
  }

  // Also keeps the run that was played, if it fails as the first one.
  bool Fails(Deviations deviations, const std::set<std::string>& without) {
    const host::ScheduleRecord wanted{std::move(deviations), ties_, {}};
    host::ScheduleRecord played;
    RunParts parts(whole_, without);
    const RunResult result =
        RunScenario(scenario_, key_,
                    {.KeepsTrace = true, .Follow = &wanted, .Record = &played, .Parts = &parts});
    ++best_.Runs;
    if (result.Outcome != Verdict::Failed || KindOf(result) != kind_) return false;
    best_.Result = result;
    best_.Schedule = std::move(played);
    best_.Parts = parts.Names();
    without_ = without;
    return true;
  }

  const Scenario& scenario_;
  const RunKey& key_;
  const std::function<bool(std::size_t)>& seen_;
  std::string kind_;
  std::vector<std::uint64_t> ties_;
  RunParts whole_;
  std::set<std::string> without_;
  MinimizedRun best_;
};

}  // namespace

MinimizedRun Minimize(const Scenario& scenario, const RunKey& key,
                      const std::function<bool(std::size_t left)>& seen) {
  return Search(scenario, key, seen).Run();
}

}  // namespace lidcam::scenarios
