// The thread that makes frames of transfers, on platforms of every version of the driver model: the driver asks for it.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

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

  /// Runs a scenario with a stream of the smallest pictures, in which StallFrameThread() stops the driver's frame thread
  /// for kStall, once.
  void RunWithStream(const std::function<void(Stream& stream)>& scenario) {
    bus::SimulatedBus bus({});
    const host::SimulationOptions options{
        .AtSwitchPoint = [this](const host::SwitchPlace& place) { return At(place); }};
    testbed::RunInVirtualTime(options, [&] {
      Host host(bus);
      testbed::RunThenEnd(
          [&] {
            const Camera camera = host.Open();
            Stream stream(camera, camera.FormatOf(160, 120));
            scenario(stream);
          },
          [&] { host.Close(); });
    });
  }

  /// At the thread's next call.
  void StallFrameThread() { stalls_ = Stalls::AtOnce; }
  /// Once it has taken a transfer from the queue in which a picture ends.
  void StallFrameThreadWithTransfer() { stalls_ = Stalls::WithTransfer; }
  /// As of its last call.
  [[nodiscard]] KPRIORITY Priority() const { return priority_; }
  /// Transfers that it has submitted since the call before.
  int Submitted() { return std::exchange(submitted_, 0); }
  [[nodiscard]] bool HasStalled() const { return stalls_ == Stalls::No; }

 private:
  enum class Stalls { No, AtOnce, WithTransfer };

  LONGLONG At(const host::SwitchPlace& place) {
    const std::string_view call = place.Subject.Name;
    // The only thread of the driver's that sets its own priority.
    if (call == "KeSetPriorityThread") thread_ = place.Self.Number;
    if (place.Self.Number != thread_) return 0;
    priority_ = place.Self.Priority;
    NoteTransfer(call, place.Subject.Object);
    const bool isToStall =
        stalls_ == Stalls::AtOnce || (stalls_ == Stalls::WithTransfer && hasTransfer_);
    if (!isToStall) return 0;
    stalls_ = Stalls::No;
    return kStall;
  }

  // The thread has a transfer from the release of the queue's lock on, the first one that it acquires, until it submits
  // the transfer again.
  void NoteTransfer(std::string_view call, const void* object) {
    if (call == "KeAcquireSpinLock" && queueLock_ == nullptr) queueLock_ = object;
    const bool isTaken = std::exchange(isReleasing_, false);
    isReleasing_ = call == "KeReleaseSpinLock" && object == queueLock_;
    if (isTaken) hasTransfer_ = true;
    if (call == "IofCallDriver") ++submitted_;
    if (call == "IofCallDriver" || call == "KeWaitForSingleObject") hasTransfer_ = false;
  }

  std::uint32_t thread_ = ~0U;
  KPRIORITY priority_ = 0;
  int submitted_ = 0;
  Stalls stalls_ = Stalls::No;
  const void* queueLock_ = nullptr;
  bool isReleasing_ = false;
  bool hasTransfer_ = false;
};

// The lowest priority that other threads' work doesn't lower.
TEST_P(FrameThread, RunsAtPrioritySixteen) {
  RunWithStream([this](Stream& stream) {
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    EXPECT_EQ(Priority(), 16);
  });
}

// What the frame thread uses is freed behind the stop.
TEST_P(FrameThread, EndsAheadOfTheStopOfItsStream) {
  RunWithStream([this](Stream& stream) {
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

// A start finds the transfer in use and only asks for it; the pause behind it takes that back.
TEST_P(FrameThread, SubmitsNoTransferOfAStreamThatWasPausedMeanwhile) {
  RunWithStream([this](Stream& stream) {
    for (int round = 0; round < 3; ++round) {
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
      StallFrameThreadWithTransfer();
      for (int n = 0; n < 1000 && !HasStalled(); ++n) Sleep(kMillisecond);
      ASSERT_TRUE(HasStalled());
      for (const KSSTATE state : {KSSTATE_PAUSE, KSSTATE_RUN, KSSTATE_PAUSE})
        EXPECT_EQ(stream.SetState(state), STATUS_SUCCESS);
      Submitted();
      Sleep(2 * kStall);
      EXPECT_EQ(Submitted(), 0);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, FrameThread,
                         ::testing::Values(0, 0x0100, 0x0105, 0x0110, 0x0120, 0x0130),
                         [](const auto& test) { return "Of" + std::to_string(test.param); });

}  // namespace
}  // namespace lidcam::compliance
