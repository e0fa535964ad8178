#include "scenarios/stated_hangs.h"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::scenarios {
namespace {

// A start first ends the previous one.
constexpr std::array<std::string_view, 5> kStops{"stop", "remove", "surprise removal", "start",
                                                 "restart"};

bool StopsDevice(const Stage& stage) {
  return std::ranges::any_of(kStops,
                             [&stage](std::string_view step) { return stage.IsDoing(step); });
}

// Whether `thread` has stopped, or waits for a mutex owned by one that has, or for one whose owner waits for
// such a mutex, and so on: no longer chain of mutexes is possible. Reads of several applications may have stopped.
bool WaitsForStoppedThread(const host::Thread* thread) {
  constexpr int kMutexes = 8;
  for (int i = 0; i < kMutexes && thread != nullptr && !thread->HasStopped; ++i) {
    const bool isBlocked = thread->State == host::Thread::RunState::Blocked;
    thread = isBlocked ? thread->World.HolderOf(thread->LastObject) : nullptr;
  }
  return thread != nullptr && thread->HasStopped;
}

// The streaming class also waits for its requests before it removes a device.
bool IsHeldUpByStoppedReader(Stage& stage, const Activity& activity) {
  if (stage.Trace().StoppedReader() == nullptr) return false;
  return WaitsForStoppedThread(activity.Thread) || activity.Step == "remove";
}

// As long as another thread makes progress, it may end, or hang without permission.
bool IsAllHeldUpByStoppedReader(Stage& stage) {
  if (stage.Trace().StoppedReader() == nullptr) return false;
  return std::ranges::all_of(stage.Activities(), [&stage](const Activity* activity) {
    return IsHeldUpByStoppedReader(stage, *activity);
  });
}

constexpr std::array kStatedHangs{
    StatedHang{.Name = "stop-after-lost-work-item",
               .Cause = "a recovery got no work item, so that its guard stays raised: stopping the "
                        "hardware waits for a recovery that never comes",
               .IsIt =
                   [](Stage& stage) {
                     return stage.Trace().HasLostWorkItem() && StopsDevice(stage) &&
                            stage.Device() != nullptr && stage.Device()->ResetGuard >= 0;
                   }},
    StatedHang{.Name = "request-never-comes-back",
               .Cause = "the USB stack keeps a request that was cancelled after its five seconds: "
                        "the wait for its end has no limit, and all other requests wait behind it",
               .IsIt = [](Stage& stage) { return stage.HasKeptRequest(); }},
    StatedHang{.Name = "read-stops-for-good",
               .Cause =
                   "a bridge read of the application path met the frame path and stops: its "
                   "request is never answered, and who wants the mutexes that its thread holds, "
                   "its filter's or the device's, waits for ever, too",
               .IsIt = IsAllHeldUpByStoppedReader},
};

}  // namespace

std::span<const StatedHang> StatedHangs() {
  return kStatedHangs;
}

const StatedHang* RecognizeHang(Stage& stage) {
  for (const StatedHang& hang : kStatedHangs) {
    if (hang.IsIt(stage)) return &hang;
  }
  return nullptr;
}

const Activity& LongestUnexplained(Stage& stage) {
  std::vector<const Activity*> activities = stage.Activities();
  std::erase_if(activities, [&stage](const Activity* activity) {
    return IsHeldUpByStoppedReader(stage, *activity);
  });
  const auto longest = std::ranges::min_element(
      activities, {}, [](const Activity* activity) { return activity->Began; });
  return longest != activities.end() ? **longest : stage.Longest();
}

}  // namespace lidcam::scenarios
