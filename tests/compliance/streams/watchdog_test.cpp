// The watchdog's ticks, which end ahead of what they use.

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "testbed/worlds.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

/// Lets each thread that cancels the watchdog's timer do so at the moment at which the timer expires.
class CancelsAtTheTick {
 public:
  LONGLONG At(const host::SwitchPlace& place) {
    constexpr LONGLONG kPeriod = 250 * kMillisecond;
    const std::string_view call = place.Subject.Name;
    const LONGLONG now = place.Self.World.Now();
    if (call == "KeSetTimerEx") {
      timer_ = place.Subject.Object;
      due_ = now + kPeriod;
    }
    if (call != "KeCancelTimer" || place.Subject.Object != timer_ || due_ <= now) return 0;
    ++count_;
    return due_ - now;
  }

  [[nodiscard]] int Count() const { return count_; }

 private:
  const void* timer_ = nullptr;
  LONGLONG due_ = 0;
  int count_ = 0;
};

// A tick that has begun as the timer is cancelled runs at any later moment.
TEST(Watchdog, ATickThatIsDueAsTheCameraGoesEndsAheadOfTheCamera) {
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    bus::SimulatedBus bus({});
    CancelsAtTheTick cancels;
    const host::SimulationOptions options{
        .Seed = seed,
        .Kind = host::SchedulerKind::Burst,
        .AtSwitchPoint = [&cancels](const host::SwitchPlace& place) { return cancels.At(place); }};
    testbed::RunInVirtualTime(options, [&] {
      Host host(bus);
      {
        const Camera camera = host.Open();
        Stream stream(camera, camera.FormatOf(160, 120));
        stream.Run();
        EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
        EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
      }
      host.Close();
    });
    EXPECT_GT(cancels.Count(), 0);
  }
}

}  // namespace
}  // namespace lidcam::compliance
