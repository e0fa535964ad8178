#include "simulation/stated_hangs.h"

#include <array>

namespace lidcam::simulation {
namespace {

bool StopsDevice(const Stage& stage) {
  return stage.Step() == "stop" || stage.Step() == "remove";
}

constexpr std::array kStatedHangs{
    StatedHang{.Name = "stop-after-lost-work-item",
               .Cause = "a recovery got no work item, so that its guard stays raised: stopping the "
                        "hardware waits for a recovery that never comes",
               .IsIt =
                   [](Stage& stage) {
                     return stage.Trace().HasLostWorkItem() && StopsDevice(stage) &&
                            stage.IsPluggedIn() && stage.Device() != nullptr &&
                            stage.Device()->ResetGuard >= 0;
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
