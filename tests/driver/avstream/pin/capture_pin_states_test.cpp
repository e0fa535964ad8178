#include "driver/avstream/pin/capture_pin_states.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/avstream/support/surface_world.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kSharing = static_cast<NTSTATUS>(0xC0000043);
constexpr auto kNoSuchState = static_cast<NTSTATUS>(0xC0000002);

/// Everything that a state change depends on.
struct Case {
  int To;
  int From;
  int StreamState;
  bool Acquired;
  bool HasClock;
  bool SlotTaken;
  bool ClockAssigned;
  bool Powered;
  bool Fails;  // every operation of the device
};

/// The expected result.
struct Outcome {
  NTSTATUS Status = 0;
  std::vector<std::string> Steps{};
  int StreamState = 0;
  bool Acquired = false;
  bool HasClock = false;
  bool CounterReset = false;
  bool SumReset = false;
  bool CountsZeroed = false;
};

// The state table again, written in another form.
Outcome Expected(const Case& c) {
  Outcome out{.StreamState = c.StreamState, .Acquired = c.Acquired, .HasClock = c.HasClock};
  const NTSTATUS answer = c.Fails ? kRefused : 0;
  if (c.To > 3) {
    out.Status = kNoSuchState;
  } else if (c.To == 0) {
    if (c.StreamState != 0) {
      out.Steps = {"release stream"};
      out.Status = answer;
    }
    out.StreamState = 0;
    out.Acquired = false;
    out.HasClock = false;
  } else if (c.To == 1 && c.From == 0) {
    out.CountsZeroed = true;
    if (!c.Acquired && c.SlotTaken) {
      out.Status = kSharing;
      return out;
    }
    out.Acquired = true;
    out.Steps = {"acquire stream"};
    out.Status = answer;
    if (!c.Fails && c.ClockAssigned) out.HasClock = true;
  } else if (c.To == 2 && c.From == 3) {
    out.Steps = {"pause stream"};
    out.Status = answer;
    if (!c.Fails) out.StreamState = 2;
  } else if (c.To == 3 && c.Powered) {
    const bool resumes = c.StreamState == 2;
    out.Steps = {resumes ? "resume stream" : "run stream"};
    out.Status = answer;
    out.CounterReset = !resumes;
    out.SumReset = !c.Fails;
    if (!c.Fails) out.StreamState = 3;
  }
  return out;
}

void SetDeviceAnswers(StubDevice& device, NTSTATUS status) {
  device.Acquire = status;
  device.Run = status;
  device.Release = status;
  device.Resume = status;
  device.Pause = status;
}

void PutInto(SurfaceWorld& world, CapturePin& pin, FakeClock& clock, const Case& c) {
  world.Device.StreamSlot = c.Acquired || c.SlotTaken ? 1 : 0;
  world.Device.DevicePowerState = c.Powered ? PowerDeviceD0 : PowerDeviceD3;
  SetDeviceAnswers(world.Device, c.Fails ? kRefused : STATUS_SUCCESS);
  world.Ks.Clock = c.ClockAssigned ? &clock : nullptr;
  clock.References = c.HasClock ? 1 : 0;
  pin.Clock = c.HasClock ? &clock : nullptr;
  pin.HasClock = c.HasClock ? 1 : 0;
  pin.Acquired = c.Acquired ? 1 : 0;
  pin.StreamState = static_cast<KSSTATE>(c.StreamState);
  *pin.FrameCounter = 44;
  pin.ExpectedFrameTime = 55;
  pin.FrameInfo.PictureNumber = 66;
  pin.FrameInfo.DropCount = 77;
  pin.FrameInfo.dwFrameFlags = 88;
  world.Device.Steps.clear();
}

void ExpectOutcome(const CapturePin& pin, const StubDevice& device, const FakeClock& clock,
                   const Outcome& expected) {
  EXPECT_EQ(device.Steps, expected.Steps);
  EXPECT_EQ(static_cast<KSSTATE>(pin.StreamState), expected.StreamState);
  EXPECT_EQ(pin.Acquired != 0, expected.Acquired);
  EXPECT_EQ(pin.HasClock != 0, expected.HasClock);
  EXPECT_EQ(clock.References, expected.HasClock ? 1 : 0);
  EXPECT_EQ(*pin.FrameCounter, expected.CounterReset ? 0 : 44);
  EXPECT_EQ(pin.ExpectedFrameTime, expected.SumReset ? 0 : 55);
  EXPECT_EQ(pin.FrameInfo.PictureNumber, expected.CountsZeroed ? 0 : 66);
  EXPECT_EQ(pin.FrameInfo.DropCount, expected.CountsZeroed ? 0 : 77);
  EXPECT_EQ(pin.FrameInfo.dwFrameFlags, expected.CountsZeroed ? 0U : 88U);
}

void RunCase(SurfaceWorld& world, WorldPin& pin, const Case& c) {
  SCOPED_TRACE(::testing::Message()
               << c.From << " -> " << c.To << " stream " << c.StreamState << " acquired "
               << c.Acquired << " clock " << c.HasClock << " taken " << c.SlotTaken << " assigned "
               << c.ClockAssigned << " powered " << c.Powered << " fails " << c.Fails);
  FakeClock clock;
  PutInto(world, pin.Object(), clock, c);
  const Outcome expected = Expected(c);
  EXPECT_EQ(pin.SetState(c.To, c.From), expected.Status);
  ExpectOutcome(pin.Object(), world.Device, clock, expected);
  const bool isTaken = expected.Acquired || (c.SlotTaken && !c.Acquired);
  EXPECT_EQ(world.Device.StreamSlot, isTaken ? 1 : 0);
}

TEST(PinStates, EveryTransitionFromEveryState) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    for (const int to : {0, 1, 2, 3, 4, 5, 0x7FFFFFFF}) {
      for (int from = 0; from <= 3; ++from) {
        for (const int streamState : {0, 2, 3}) {
          for (int bits = 0; bits < 64; ++bits) {
            const auto bit = [bits](int n) { return (bits >> n & 1) != 0; };
            RunCase(world, pin,
                    {to, from, streamState, bit(0), bit(1), bit(2), bit(3), bit(4), bit(5)});
          }
        }
      }
    }
    pin.Object().HasClock = 0;
  });
}

TEST(PinStates, ANegativeStateIsRefusedToo) {
  EXPECT_EQ(StepFor(static_cast<KSSTATE>(-1), KSSTATE_STOP, KSSTATE_STOP, PowerDeviceD0),
            PinStep::Refuse);
}

TEST(PinStates, ASecondPinGetsTheStreamOnlyOnceTheFirstHasStopped) {
  InSurface([](SurfaceWorld& world) {
    WorldPin first(world);
    WorldPin second(world);
    ASSERT_EQ(first.Create(), STATUS_SUCCESS);
    ASSERT_EQ(second.Create(), STATUS_SUCCESS);
    EXPECT_EQ(first.SetState(1, 0), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.StreamVideoInfo,
              static_cast<PKS_VIDEOINFOHEADER>(first.Object().VideoInfo));
    EXPECT_EQ(second.SetState(1, 0), kSharing);
    EXPECT_EQ(second.Object().Acquired, 0);
    EXPECT_EQ(second.SetState(0, 1), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.StreamSlot, 1) << "still the first pin's";
    EXPECT_EQ(world.Device.StreamVideoInfo,
              static_cast<PKS_VIDEOINFOHEADER>(first.Object().VideoInfo));
    EXPECT_EQ(first.SetState(0, 1), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.StreamVideoInfo, nullptr);
    EXPECT_EQ(second.SetState(1, 0), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.AcquiredWith,
              static_cast<PKS_VIDEOINFOHEADER>(second.Object().VideoInfo));
    EXPECT_EQ(second.SetState(0, 1), STATUS_SUCCESS);
  });
}

TEST(PinStates, TheSecondRunResumesAndKeepsTheFrameCounter) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    *pin.Object().FrameCounter = 9;
    pin.SetState(1, 0);
    pin.SetState(2, 1);
    EXPECT_EQ(*pin.Object().FrameCounter, 9);
    pin.SetState(3, 2);
    EXPECT_EQ(*pin.Object().FrameCounter, 0);
    *pin.Object().FrameCounter = 12;
    pin.SetState(2, 3);
    pin.SetState(3, 2);
    EXPECT_EQ(*pin.Object().FrameCounter, 12);
    EXPECT_THAT(world.Device.Steps,
                ElementsAre("acquire stream", "run stream", "pause stream", "resume stream"));
    pin.SetState(0, 3);
  });
}

// A frame that comes while the transfers start is one of the two that are skipped.
TEST(PinStates, TheFrameCounterIsResetBeforeTheTransfersStart) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.SetState(1, 0);
    *pin.Object().FrameCounter = 50;
    pin.Object().ExpectedFrameTime = 60;
    bool wasAsked = false;
    world.Device.OnRun = [&] {
      wasAsked = true;
      EXPECT_EQ(*pin.Object().FrameCounter, 0);
      EXPECT_EQ(pin.Object().ExpectedFrameTime, 60);
    };
    pin.SetState(3, 2);
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(pin.Object().ExpectedFrameTime, 0);
    pin.SetState(0, 3);
  });
}

TEST(PinStates, TheWayDownReleasesTheStreamOnceAtStop) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.SetState(1, 0);
    pin.SetState(2, 1);
    pin.SetState(3, 2);
    pin.SetState(2, 3);
    world.Device.Steps.clear();
    EXPECT_EQ(pin.SetState(1, 2), STATUS_SUCCESS);
    EXPECT_THAT(world.Device.Steps, IsEmpty());
    EXPECT_EQ(pin.SetState(0, 1), STATUS_SUCCESS);
    EXPECT_THAT(world.Device.Steps, ElementsAre("release stream"));
  });
}

TEST(PinStates, AStreamThatNeverRanIsNotReleasedAtStopThoughSlotAndClockAre) {
  InSurface([](SurfaceWorld& world) {
    FakeClock clock;
    world.Ks.Clock = &clock;
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.SetState(1, 0);
    pin.SetState(2, 1);
    EXPECT_EQ(clock.References, 1);
    EXPECT_EQ(pin.SetState(0, 2), STATUS_SUCCESS);
    EXPECT_THAT(world.Device.Steps, ElementsAre("acquire stream"));
    EXPECT_EQ(world.Device.StreamSlot, 0);
    EXPECT_EQ(clock.References, 0);
    world.Device.Acquire = STATUS_UNSUCCESSFUL;  // as if the USB side found the stream prepared
    EXPECT_EQ(pin.SetState(1, 0), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(pin.Object().Acquired, 1);
    EXPECT_EQ(pin.Object().HasClock, 0) << "a failed acquire queries no clock";
    EXPECT_EQ(pin.SetState(0, 1), STATUS_SUCCESS);
    EXPECT_EQ(world.Device.StreamSlot, 0);
  });
}

TEST(PinStates, StopReleasesStreamThenSlotThenClock) {
  InSurface([](SurfaceWorld& world) {
    FakeClock clock;
    world.Ks.Clock = &clock;
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.SetState(1, 0);
    pin.SetState(3, 2);
    world.Device.Steps.clear();
    world.Device.Release = kRefused;
    world.Device.OnStep = [&] {
      EXPECT_EQ(world.Device.StreamSlot, 1);
      EXPECT_EQ(clock.References, 1);
    };
    clock.OnRelease = [&] {
      EXPECT_EQ(world.Device.StreamSlot, 0);
      EXPECT_EQ(pin.Object().Acquired, 0);
    };
    EXPECT_EQ(pin.SetState(0, 1), kRefused);
    EXPECT_THAT(world.Device.Steps, ElementsAre("release stream"));
    EXPECT_EQ(static_cast<KSSTATE>(pin.Object().StreamState), KSSTATE_STOP);
    EXPECT_EQ(world.Device.StreamSlot, 0);
    EXPECT_EQ(clock.References, 0);
  });
}

// The platform may close a pin without a stop where the acquire was refused.
TEST(PinStates, APinClosedWithoutItsStopGivesSlotAndClockUp) {
  InSurface([](SurfaceWorld& world) {
    FakeClock clock;
    world.Ks.Clock = &clock;
    {
      WorldPin refused(world);
      ASSERT_EQ(refused.Create(), STATUS_SUCCESS);
      world.Device.Acquire = kRefused;
      EXPECT_EQ(refused.SetState(1, 0), kRefused);
      EXPECT_EQ(world.Device.StreamSlot, 1);
    }
    EXPECT_EQ(world.Device.StreamSlot, 0);
    EXPECT_EQ(static_cast<PKS_VIDEOINFOHEADER>(world.Device.StreamVideoInfo), nullptr);
    world.Device.Acquire = STATUS_SUCCESS;
    {
      WorldPin later(world);
      ASSERT_EQ(later.Create(), STATUS_SUCCESS);
      EXPECT_EQ(later.SetState(1, 0), STATUS_SUCCESS);
      EXPECT_EQ(clock.References, 1);
    }
    EXPECT_EQ(world.Device.StreamSlot, 0);
    EXPECT_EQ(clock.References, 0);
  });
}

TEST(PinStates, APinThatHoldsNothingLeavesTheSlotToAnother) {
  InSurface([](SurfaceWorld& world) {
    WorldPin streaming(world);
    ASSERT_EQ(streaming.Create(), STATUS_SUCCESS);
    EXPECT_EQ(streaming.SetState(1, 0), STATUS_SUCCESS);
    {
      WorldPin other(world);
      ASSERT_EQ(other.Create(), STATUS_SUCCESS);
    }
    EXPECT_EQ(world.Device.StreamSlot, 1);
    streaming.SetState(0, 1);
  });
}

TEST(PinStates, AClockThatIsAssignedAfterAcquireGoesUnnoticedUntilTheNextOne) {
  InSurface([](SurfaceWorld& world) {
    FakeClock clock;
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    EXPECT_EQ(pin.SetState(1, 0), STATUS_SUCCESS);
    world.Ks.Clock = &clock;
    pin.SetState(2, 1);
    pin.SetState(3, 2);
    EXPECT_EQ(pin.Object().HasClock, 0);
    pin.SetState(0, 1);
    pin.SetState(1, 0);
    EXPECT_EQ(pin.Object().HasClock, 1);
    pin.SetState(0, 1);
    EXPECT_EQ(clock.References, 0);
  });
}

}  // namespace
}  // namespace lidcam::test
