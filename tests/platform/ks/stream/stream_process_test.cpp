// When a pin's process routine is called, and what waits for it.

#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

// Delivers a frame as the camera's driver does: one per call, PENDING when it was ejected.
struct Filler {
  explicit Filler(PinWorld& world, LONGLONG duration = 0) : Duration(duration) {
    world.Driver.OnProcess = [this](PKSPIN pin) { return Process(pin); };
  }

  NTSTATUS Process(PKSPIN pin) {
    if (InterlockedIncrement(&Running) != 1) WasAlone = false;
    if (KeGetCurrentIrql() != PASSIVE_LEVEL) WasPassive = false;
    ++Calls;
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(pin, KSSTREAM_POINTER_STATE_LOCKED);
    if (Duration != 0) Sleep(Duration);
    KsAcquireDevice(KsGetDevice(pin));
    KsReleaseDevice(KsGetDevice(pin));
    if (edge != nullptr) {
      edge->StreamHeader->DataUsed = 64;
      KsStreamPointerUnlock(edge, TRUE);
    }
    InterlockedDecrement(&Running);
    return Result;
  }

  const LONGLONG Duration;
  NTSTATUS Result = STATUS_PENDING;
  LONG Calls = 0;
  LONG Running = 0;
  bool WasAlone = true;
  bool WasPassive = true;
};

TEST(Processing, ArrivalOfAFrameStartsNothing) {
  WithPin([](PinWorld& world) {
    const Filler filler(world);
    world.SetState(KSSTATE_RUN);
    PinRequest request;
    world.Read(request, 1);
    Sleep(kSecond);
    EXPECT_EQ(filler.Calls, 0);
    KsPinAttemptProcessing(&world.Pin(), TRUE);
    Sleep(kMillisecond);
    EXPECT_EQ(filler.Calls, 1);
    EXPECT_EQ(request.Status(), STATUS_SUCCESS);
  });
}

TEST(Processing, ComesInRunOnlyAndWithAFrameOnly) {
  WithPin([](PinWorld& world) {
    const Filler filler(world);
    PinRequest request;
    for (const KSSTATE state : {KSSTATE_RUN, KSSTATE_PAUSE, KSSTATE_ACQUIRE, KSSTATE_PAUSE}) {
      world.SetState(state);
      if (state == KSSTATE_PAUSE && !request.IsDone() && request.Packet->UserBuffer == nullptr) {
        world.Read(request, 1);
      }
      KsPinAttemptProcessing(&world.Pin(), TRUE);
      Sleep(kMillisecond);
      EXPECT_EQ(filler.Calls, 0) << state;
    }
    world.SetState(KSSTATE_RUN);
    Sleep(kMillisecond);
    EXPECT_EQ(filler.Calls, 0);
    KsPinAttemptProcessing(&world.Pin(), FALSE);
    Sleep(kMillisecond);
    EXPECT_EQ(filler.Calls, 1);
  });
}

TEST(Processing, GoesOnAfterSuccessWhileFramesAreQueuedAndWaitsAfterAnythingElse) {
  for (const bool goesOn : {false, true}) {
    WithPin([goesOn](PinWorld& world) {
      Filler filler(world);
      filler.Result = goesOn ? STATUS_SUCCESS : STATUS_PENDING;
      world.SetState(KSSTATE_RUN);
      PinRequest request;
      world.Read(request, 3);
      KsPinAttemptProcessing(&world.Pin(), TRUE);
      Sleep(kMillisecond);
      EXPECT_EQ(filler.Calls, goesOn ? 3 : 1);
      EXPECT_EQ(request.IsDone(), goesOn);
      world.SetState(KSSTATE_STOP);
    });
  }
}

TEST(Processing, RunsAtPassiveLevelOnceAtATimeForAnyCaller) {
  WithPin(
      [](PinWorld& world) {
        const Filler filler(world, kMillisecond);
        world.SetState(KSSTATE_RUN);
        PinRequest request;
        world.Read(request, 3);
        for (int i = 0; i < 3; ++i) {
          KIRQL before = PASSIVE_LEVEL;
          KeRaiseIrql(DISPATCH_LEVEL, &before);
          KsPinAttemptProcessing(&world.Pin(), TRUE);
          KsPinAttemptProcessing(&world.Pin(), FALSE);
          KeLowerIrql(before);
          Sleep(kMillisecond / 2);
        }
        Sleep(kSecond);
        // Attempts during a call count as one.
        EXPECT_GE(filler.Calls, 2);
        EXPECT_TRUE(filler.WasAlone);
        EXPECT_TRUE(filler.WasPassive);
        world.SetState(KSSTATE_STOP);
      },
      50);
}

TEST(Processing, StopWaitsForTheProcessCallBeforeTheDriverAndTheFrames) {
  WithPin(
      [](PinWorld& world) {
        const Filler filler(world, 10 * kMillisecond);
        world.SetState(KSSTATE_RUN);
        PinRequest request;
        PinRequest other;
        world.Read(request, 1);
        world.Read(other, 1, 1);
        KsPinAttemptProcessing(&world.Pin(), TRUE);
        Sleep(kMillisecond);
        ASSERT_EQ(filler.Running, 1);
        world.Driver.OnStep = [&](KSSTATE to, KSSTATE) {
          if (to == KSSTATE_STOP) {
            EXPECT_EQ(filler.Running, 0);
            EXPECT_TRUE(request.IsDone());
            EXPECT_FALSE(other.IsDone());
          }
          return STATUS_SUCCESS;
        };
        world.SetState(KSSTATE_STOP);
        EXPECT_EQ(request.Status(), STATUS_SUCCESS);
        EXPECT_EQ(other.Status(), STATUS_CANCELLED);
      },
      50);
}

TEST(Processing, CloseWaitsForTheProcessCall) {
  WithPin(
      [](PinWorld& world) {
        const Filler filler(world, 10 * kMillisecond);
        world.SetState(KSSTATE_RUN);
        PinRequest request;
        world.Read(request, 2);
        KsPinAttemptProcessing(&world.Pin(), TRUE);
        Sleep(kMillisecond);
        world.Close();
        EXPECT_EQ(Now(), 10 * kMillisecond);
        EXPECT_EQ(filler.Running, 0);
        EXPECT_EQ(request.Status(), STATUS_CANCELLED);
      },
      50);
}

void Race(PinWorld& world) {
  const Filler filler(world);
  PinRequest requests[4];
  world.SetState(KSSTATE_RUN);
  for (ULONG i = 0; i < 4; ++i) world.Read(requests[i], 1, i);
  {
    TestThread camera([&] {
      for (int i = 0; i < 6; ++i) KsPinAttemptProcessing(&world.Pin(), TRUE);
    });
    TestThread canceller([&] {
      for (PinRequest& request : requests) IoCancelIrp(request.Packet.Irp());
    });
    world.SetState(KSSTATE_STOP);
  }
  EXPECT_TRUE(filler.WasAlone);
  for (PinRequest& request : requests) {
    EXPECT_EQ(request.Packet.Completions, 1);
    const bool isFilled = request.Status() == STATUS_SUCCESS;
    EXPECT_TRUE(isFilled || request.Status() == STATUS_CANCELLED);
    EXPECT_EQ(PinWorld::HeaderOf(request, 0).DataUsed, isFilled ? 64U : 0U);
  }
}

TEST(Processing, ProcessCancelAndStopAtOnceLoseNothing) {
  WithPin(Race, 50);
}

TEST(Processing, ProcessCancelAndStopAtOnceLoseNothingInRealTime) {
  for (int round = 0; round < 20; ++round) {
    PinWorld world;
    ASSERT_EQ(world.Create(), STATUS_SUCCESS);
    Race(world);
    world.Close();
  }
}

}  // namespace
}  // namespace lidcam::host
