// The thread that makes frames of transfers, on platforms of every version of the driver model: the driver asks for it.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/system/wdm_version.h"
#include "testbed/worlds.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

constexpr LONGLONG kStall = 2 * kSecond;

/// A version: the major one's byte and the minor one's.
class FrameThread : public ::testing::TestWithParam<std::uint16_t> {
 protected:
  FrameThread() { host::SetWdmVersion(GetParam()); }
  ~FrameThread() override { host::SetWdmVersion(0x0130); }

  /// Runs a scenario in which the driver's frame thread stops for kStall at its next call, once, after StallFrameThread().
  void RunWithFrameThread(const Scenario& scenario) {
    bus::SimulatedBus bus({});
    const host::SimulationOptions options{.AtSwitchPoint = [this](const host::SwitchPlace& place) {
      // The only thread of the driver's that sets its own priority.
      if (std::string_view(place.Subject.Name) == "KeSetPriorityThread")
        thread_ = place.Self.Number;
      if (place.Self.Number != thread_) return LONGLONG{0};
      priority_ = place.Self.Priority;
      if (!isToStall_) return LONGLONG{0};
      isToStall_ = false;
      return kStall;
    }};
    testbed::RunInVirtualTime(options, [&] {
      Host host(bus);
      testbed::RunThenEnd([&] { scenario(host); }, [&] { host.Close(); });
    });
  }

  void StallFrameThread() { isToStall_ = true; }
  /// As of its last call.
  [[nodiscard]] KPRIORITY Priority() const { return priority_; }
  [[nodiscard]] bool HasStalled() const { return !isToStall_; }

 private:
  std::uint32_t thread_ = ~0U;
  KPRIORITY priority_ = 0;
  bool isToStall_ = false;
};

// The lowest priority that other threads' work doesn't lower.
TEST_P(FrameThread, RunsAtPrioritySixteen) {
  RunWithFrameThread([this](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    EXPECT_EQ(Priority(), 16);
  });
}

// What the frame thread uses is freed behind the stop.
TEST_P(FrameThread, EndsAheadOfTheStopOfItsStream) {
  RunWithFrameThread([this](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    for (int round = 0; round < 3; ++round) {
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
      const LONGLONG before = host::CurrentWorld().Now();
      StallFrameThread();
      stream.Stop();
      EXPECT_TRUE(HasStalled());
      EXPECT_GE(host::CurrentWorld().Now() - before, kStall);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, FrameThread,
                         ::testing::Values(0, 0x0100, 0x0105, 0x0110, 0x0120, 0x0130),
                         [](const auto& test) { return "Of" + std::to_string(test.param); });

}  // namespace
}  // namespace lidcam::compliance
