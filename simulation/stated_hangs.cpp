#include "simulation/stated_hangs.h"

#include <algorithm>
#include <array>

namespace lidcam::simulation {
namespace {

// A start takes down what the one before has left.
constexpr std::array<std::string_view, 5> kStops{"stop", "remove", "surprise removal", "start",
                                                 "restart"};

bool StopsDevice(const Stage& stage) {
  return std::ranges::any_of(kStops,
                             [&stage](std::string_view step) { return stage.IsDoing(step); });
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
    StatedHang{
        .Name = "request-never-comes-back",
        .Cause = "the USB stack keeps a request that was cancelled after its five seconds: "
                 "the wait for its end has no limit, and all other requests wait behind it",
        .IsIt =
            [](Stage& stage) { return stage.IsPluggedIn() && stage.Between().HasKeptRequest(); }},
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

}  // namespace lidcam::simulation
