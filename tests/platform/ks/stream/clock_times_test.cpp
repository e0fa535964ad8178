// A pin's clock: its time in each state, its properties, and its lifetime.

#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

TEST(PinClock, RunsWhileThePinRunsStandsInPauseAndIsZeroAtAStop) {
  WithPin([](PinWorld& world) {
    PinClock& clock = *world.Pin().Clock;
    Sleep(kMillisecond);
    EXPECT_EQ(clock.GetTime(), 0);
    world.SetState(KSSTATE_PAUSE);
    Sleep(kMillisecond);
    EXPECT_EQ(clock.GetTime(), 0);
    world.SetState(KSSTATE_RUN);
    EXPECT_EQ(clock.GetTime(), 0);
    Sleep(5 * kMillisecond);
    EXPECT_EQ(clock.GetTime(), 50'000);
    world.SetState(KSSTATE_PAUSE);
    Sleep(kMillisecond);
    EXPECT_EQ(clock.GetTime(), 50'000);
    world.SetState(KSSTATE_RUN);
    Sleep(2 * kMillisecond);
    LONGLONG systemTime = 0;
    EXPECT_EQ(clock.GetCorrelatedTime(&systemTime), 70'000);
    EXPECT_EQ(systemTime, Now());
    EXPECT_EQ(clock.GetPhysicalTime(), Now());
    EXPECT_EQ(clock.GetCorrelatedPhysicalTime(&systemTime), Now());
    world.SetState(KSSTATE_ACQUIRE);
    EXPECT_EQ(clock.GetTime(), 70'000);
    world.SetState(KSSTATE_STOP);
    EXPECT_EQ(clock.GetTime(), 0);
  });
}

TEST(PinClock, IsReadAtDispatchLevelBesideAChangeOfState) {
  WithPin(
      [](PinWorld& world) {
        PinClock& clock = *world.Pin().Clock;
        world.SetState(KSSTATE_RUN);
        Sleep(kMillisecond);
        TestThread reader([&clock] {
          KIRQL before = PASSIVE_LEVEL;
          KeRaiseIrql(DISPATCH_LEVEL, &before);
          LONGLONG last = 0;
          for (int i = 0; i < 20; ++i) {
            const LONGLONG time = clock.GetTime();
            EXPECT_GE(time, last);
            last = time;
          }
          KeLowerIrql(before);
          EXPECT_EQ(last, 10'000);
        });
        for (int i = 0; i < 5; ++i) {
          world.SetState(KSSTATE_PAUSE);
          world.SetState(KSSTATE_RUN);
        }
      },
      50);
}

TEST(PinClock, TellsStateAndResolution) {
  WithPin([](PinWorld& world) {
    PinClock& clock = *world.Pin().Clock;
    world.SetState(KSSTATE_RUN);
    KSSTATE state = KSSTATE_STOP;
    EXPECT_EQ(clock.GetState(&state), STATUS_SUCCESS);
    EXPECT_EQ(state, KSSTATE_RUN);
    KSRESOLUTION resolution{};
    EXPECT_EQ(clock.GetResolution(&resolution), STATUS_SUCCESS);
    EXPECT_EQ(resolution.Granularity, 1);
    EXPECT_EQ(resolution.Error, 0);
    PVOID object = &clock;
    EXPECT_EQ(clock.QueryInterface(KSNAME_Clock, &object), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(object, nullptr);
  });
}

NTSTATUS Ask(PinWorld& world, PinRequest& request, ULONG id, ULONG length) {
  return world.Property(request, world.ClockFile, KSPROPSETID_Clock, id, KSPROPERTY_TYPE_GET,
                        length);
}

TEST(OpenedClock, AnswersTimeResolutionAndState) {
  WithPin([](PinWorld& world) {
    ASSERT_EQ(world.OpenClock(), STATUS_SUCCESS);
    world.SetState(KSSTATE_RUN);
    Sleep(3 * kMillisecond);
    PinRequest time;
    EXPECT_EQ(Ask(world, time, KSPROPERTY_CLOCK_TIME, 8), STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<LONGLONG>(time), 30'000);
    PinRequest resolution;
    EXPECT_EQ(Ask(world, resolution, KSPROPERTY_CLOCK_RESOLUTION, 16), STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<KSRESOLUTION>(resolution).Granularity, 1);
    PinRequest state;
    EXPECT_EQ(Ask(world, state, KSPROPERTY_CLOCK_STATE, 4), STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<ULONG>(state), 3U);
    PinRequest other;
    EXPECT_EQ(Ask(world, other, KSPROPERTY_CLOCK_PHYSICALTIME, 8), STATUS_NOT_FOUND);
    PinRequest reading;
    EXPECT_EQ(world.Control(reading, world.ClockFile, IOCTL_KS_READ_STREAM, 0, 0),
              STATUS_INVALID_DEVICE_REQUEST);
    CloseClock(*static_cast<ObjectHead*>(world.ClockFile.FsContext));
  });
}

TEST(OpenedClock, StandsStillOncePinAndStreamAreGone) {
  WithPin([](PinWorld& world) {
    ASSERT_EQ(world.OpenClock(), STATUS_SUCCESS);
    world.SetState(KSSTATE_RUN);
    Sleep(kMillisecond);
    world.Close();
    for (int i = 0; i < 2; ++i) {
      PinRequest time;
      EXPECT_EQ(Ask(world, time, KSPROPERTY_CLOCK_TIME, 8), STATUS_SUCCESS);
      EXPECT_EQ(ValueOf<LONGLONG>(time), 0);
      Sleep(kMillisecond);
    }
    CloseClock(*static_cast<ObjectHead*>(world.ClockFile.FsContext));
  });
}

TEST(OpenedClock, ReferencesOutliveFileAndPin) {
  WithPin([](PinWorld& world) {
    ASSERT_EQ(world.OpenClock(), STATUS_SUCCESS);
    PinClock& clock = *world.Pin().Clock;
    clock.AddRef();
    world.Pin().MasterClock = &clock;  // a pin may use its own clock
    PIKSREFERENCECLOCK reference = nullptr;
    EXPECT_EQ(KsPinGetReferenceClockInterface(&world.Pin(), &reference), STATUS_SUCCESS);
    EXPECT_EQ(reference, &clock);
    CloseClock(*static_cast<ObjectHead*>(world.ClockFile.FsContext));
    world.Close();
    EXPECT_EQ(reference->GetTime(), 0);
    EXPECT_EQ(reference->AddRef(), 2U);
    EXPECT_EQ(reference->Release(), 1U);
    EXPECT_EQ(reference->Release(), 0U);
  });
}

TEST(OpenedClock, NeedsMemory) {
  WithPin([](PinWorld& world) {
    EXPECT_EQ(world.Do(world.ClockFile,
                       [&world](PIRP irp) {
                         FailPoolAllocation(1);
                         return CreateClock(world.Head(), irp);
                       }),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(world.ClockFile.FsContext, nullptr);
  });
}

}  // namespace
}  // namespace lidcam::host
