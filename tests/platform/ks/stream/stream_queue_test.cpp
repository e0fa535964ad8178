// Frames of an application at a pin: invalid requests, cancelling, resets, and the completions at a
// stop.

#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

struct Fault {
  const char* Name;
  void (*Break)(KSSTREAM_HEADER& second);
  ULONG Bytes;
  NTSTATUS Status;
};

constexpr Fault kFaults[] = {
    {"NoHeader", [](KSSTREAM_HEADER&) {}, 0, STATUS_INVALID_BUFFER_SIZE},
    {"CutOffHeader", [](KSSTREAM_HEADER&) {}, 112 + 55, STATUS_INVALID_BUFFER_SIZE},
    {"CutOffExtension", [](KSSTREAM_HEADER&) {}, 223, STATUS_INVALID_BUFFER_SIZE},
    {"HeaderWithoutRoomForTheExtension", [](KSSTREAM_HEADER& h) { h.Size = 104; }, 224,
     STATUS_INVALID_BUFFER_SIZE},
    {"HeaderOfNoSize", [](KSSTREAM_HEADER& h) { h.Size = 0; }, 224, STATUS_INVALID_BUFFER_SIZE},
    {"HeaderBeyondTheRequest", [](KSSTREAM_HEADER& h) { h.Size = 120; }, 224,
     STATUS_INVALID_BUFFER_SIZE},
    {"OddHeaderSize", [](KSSTREAM_HEADER& h) { h.Size = 113; }, 230, STATUS_INVALID_BUFFER_SIZE},
    {"SmallBuffer", [](KSSTREAM_HEADER& h) { h.FrameExtent = 63; }, 224, STATUS_BUFFER_TOO_SMALL},
    {"NoBuffer", [](KSSTREAM_HEADER& h) { h.Data = nullptr; }, 224, STATUS_INVALID_PARAMETER},
};

class StreamFault : public testing::TestWithParam<Fault> {};

TEST_P(StreamFault, IsRefusedAndQueuesNothing) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    for (ULONG i = 0; i < 2; ++i) PinWorld::HeaderOf(request, i) = world.Header(i);
    GetParam().Break(PinWorld::HeaderOf(request, 1));
    EXPECT_EQ(world.Control(request, world.PinFile, IOCTL_KS_READ_STREAM, 0, GetParam().Bytes),
              GetParam().Status);
    EXPECT_EQ(request.Packet.Completions, 1);
    EXPECT_FALSE(world.Pin().Frames.HasFrame());
  });
}

INSTANTIATE_TEST_SUITE_P(Each, StreamFault, testing::ValuesIn(kFaults),
                         [](const auto& each) { return std::string(each.param.Name); });

TEST(Stream, FailsCleanlyWithoutMemory) {
  for (std::uint32_t failing = 1; failing <= 2; ++failing) {
    WithPin([failing](PinWorld& world) {
      PinRequest request;
      FailPoolAllocation(failing);
      EXPECT_EQ(world.Read(request, 2), STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_FALSE(world.Pin().Frames.HasFrame());
    });
  }
}

// Locks the leading edge's frame, writes its size, and ejects it.
bool Fill(PinWorld& world, ULONG dataUsed) {
  PKSSTREAM_POINTER const edge =
      KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
  if (edge == nullptr) return false;
  edge->StreamHeader->DataUsed = dataUsed;
  KsStreamPointerUnlock(edge, TRUE);
  return true;
}

TEST(Stream, FramesGoOutInTheOrderOfTheirArrivalAndARequestWithItsLast) {
  WithPin([](PinWorld& world) {
    PinRequest first;
    PinRequest second;
    EXPECT_EQ(world.Read(first, 2, 0), STATUS_PENDING);
    EXPECT_EQ(world.Read(second, 1, 2), STATUS_PENDING);
    for (ULONG frame = 0; frame < 3; ++frame) {
      EXPECT_EQ(first.IsDone(), frame == 2);
      PKSSTREAM_POINTER const edge =
          KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
      ASSERT_NE(edge, nullptr);
      EXPECT_EQ(edge->Pin, &world.Pin());
      EXPECT_EQ(edge->StreamHeader->Data, world.Buffers[frame].data());
      EXPECT_EQ(edge->Offset, &edge->OffsetOut);
      EXPECT_EQ(edge->Offset->Data, world.Buffers[frame].data());
      EXPECT_EQ(edge->Offset->Count, 64U);
      edge->StreamHeader->DataUsed = 10 + frame;
      KsStreamPointerUnlock(edge, TRUE);
    }
    EXPECT_EQ(first.Status(), STATUS_SUCCESS);
    EXPECT_EQ(first.Information(), 224U);
    EXPECT_EQ(PinWorld::HeaderOf(first, 0).DataUsed, 10U);
    EXPECT_EQ(PinWorld::HeaderOf(first, 1).DataUsed, 11U);
    EXPECT_EQ(PinWorld::HeaderOf(second, 0).DataUsed, 12U);
    EXPECT_EQ(KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED),
              nullptr);
  });
}

TEST(Stream, FrameUnlockedWithoutEjectStaysTheNextOne) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    world.Read(request, 1);
    PKSSTREAM_POINTER const unlocked =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_UNLOCKED);
    ASSERT_NE(unlocked, nullptr);
    EXPECT_EQ(unlocked->StreamHeader, nullptr);
    KsStreamPointerUnlock(unlocked, TRUE);  // was never locked: no effect
    EXPECT_FALSE(request.IsDone());
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
    KsStreamPointerUnlock(edge, FALSE);
    EXPECT_FALSE(request.IsDone());
    EXPECT_TRUE(Fill(world, 5));
    EXPECT_EQ(request.Status(), STATUS_SUCCESS);
  });
}

TEST(Stream, CancelTakesARequestOutOfAnyPlaceOfTheQueue) {
  for (ULONG cancelled = 0; cancelled < 3; ++cancelled) {
    WithPin([cancelled](PinWorld& world) {
      PinRequest requests[3];
      for (ULONG i = 0; i < 3; ++i) world.Read(requests[i], 2, 2 * i);
      EXPECT_EQ(IoCancelIrp(requests[cancelled].Packet.Irp()), TRUE);
      EXPECT_TRUE(requests[cancelled].IsDone());
      EXPECT_EQ(requests[cancelled].Status(), STATUS_CANCELLED);
      EXPECT_EQ(requests[cancelled].Information(), 0U);
      for (int i = 0; i < 4; ++i) EXPECT_TRUE(Fill(world, 1));
      EXPECT_FALSE(Fill(world, 1));
      for (ULONG i = 0; i < 3; ++i) {
        EXPECT_EQ(requests[i].Packet.Completions, 1);
        EXPECT_EQ(requests[i].Status(), i == cancelled ? STATUS_CANCELLED : STATUS_SUCCESS);
      }
    });
  }
}

TEST(Stream, RequestCancelledBeforeItArrivesGoesBackAtOnce) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    request.Packet.Arm();
    request.Packet->Cancel = TRUE;
    EXPECT_EQ(world.Read(request, 2), STATUS_PENDING);
    EXPECT_TRUE(request.IsDone());
    EXPECT_EQ(request.Status(), STATUS_CANCELLED);
    EXPECT_FALSE(world.Pin().Frames.HasFrame());
  });
}

TEST(Stream, LockedFrameCannotBeCancelled) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    world.Read(request, 1);
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
    IoCancelIrp(request.Packet.Irp());
    EXPECT_FALSE(request.IsDone());
    edge->StreamHeader->DataUsed = 9;
    KsStreamPointerUnlock(edge, TRUE);
    EXPECT_EQ(request.Status(), STATUS_SUCCESS);
    EXPECT_EQ(PinWorld::HeaderOf(request, 0).DataUsed, 9U);
  });
}

TEST(Stream, FrameLockedDuringACancelGoesBackWhenItIsUnlocked) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    world.Read(request, 3);
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
    IoCancelIrp(request.Packet.Irp());
    EXPECT_FALSE(request.IsDone());
    KsStreamPointerUnlock(edge, FALSE);
    EXPECT_EQ(request.Packet.Completions, 1);
    EXPECT_EQ(request.Status(), STATUS_CANCELLED);
    EXPECT_FALSE(world.Pin().Frames.HasFrame());
  });
}

NTSTATUS Reset(PinWorld& world, ULONG kind, ULONG bytes = 4) {
  PinRequest request;
  std::memcpy(request.Input.data(), &kind, sizeof(kind));
  return world.Control(request, world.PinFile, IOCTL_KS_RESET_STATE, bytes, 0);
}

TEST(Stream, ResetHandsBackAllButTheLockedFrameAndRefusesNewOnesUntilItsEnd) {
  WithPin([](PinWorld& world) {
    PinRequest first;
    PinRequest second;
    PinRequest third;
    world.Read(first, 1);
    world.Read(second, 2);
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
    EXPECT_EQ(Reset(world, KSRESET_BEGIN), STATUS_SUCCESS);
    EXPECT_EQ(world.Driver.Resets, 1);
    EXPECT_EQ(second.Status(), STATUS_CANCELLED);
    EXPECT_FALSE(first.IsDone());
    EXPECT_EQ(world.Read(third, 1), STATUS_DEVICE_NOT_READY);
    KsStreamPointerUnlock(edge, TRUE);
    EXPECT_EQ(first.Status(), STATUS_SUCCESS);
    EXPECT_EQ(Reset(world, KSRESET_END), STATUS_SUCCESS);
    PinRequest fourth;
    EXPECT_EQ(world.Read(fourth, 1), STATUS_PENDING);
    EXPECT_TRUE(Fill(world, 1));
  });
}

TEST(Stream, ResetOfNoKindIsRefused) {
  WithPin([](PinWorld& world) {
    EXPECT_EQ(Reset(world, 2), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Reset(world, KSRESET_BEGIN, 3), STATUS_INVALID_BUFFER_SIZE);
  });
}

TEST(Stream, StopHandsBackLockedFramesTooAndALateUnlockIsSafe) {
  WithPin([](PinWorld& world) {
    world.SetState(KSSTATE_PAUSE);
    PinRequest first;
    PinRequest second;
    world.Read(first, 2);
    world.Read(second, 1);
    PKSSTREAM_POINTER const edge =
        KsPinGetLeadingEdgeStreamPointer(&world.Pin(), KSSTREAM_POINTER_STATE_LOCKED);
    world.SetState(KSSTATE_STOP);
    EXPECT_EQ(first.Status(), STATUS_CANCELLED);
    EXPECT_EQ(second.Status(), STATUS_CANCELLED);
    KsStreamPointerUnlock(edge, TRUE);
    PinRequest third;
    world.Read(third, 1);
    KsStreamPointerUnlock(edge, TRUE);
    EXPECT_FALSE(third.IsDone());
    CleanUpPin(world.Head());
    EXPECT_EQ(third.Status(), STATUS_CANCELLED);
    for (const PinRequest* request : {&first, &second, &third}) {
      EXPECT_EQ(request->Packet.Completions, 1);
    }
  });
}

TEST(Stream, GoneDeviceHandsAllFramesBackAndTakesNoMore) {
  WithPin([](PinWorld& world) {
    PinRequest first;
    PinRequest second;
    world.Read(first, 2);
    InterlockedExchange(&world.Device->IsGone, 1);
    ReturnFramesOfAllPins(*world.Device);
    EXPECT_EQ(first.Status(), STATUS_CANCELLED);
    EXPECT_EQ(world.Read(second, 1), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_TRUE(second.IsDone());
  });
}

TEST(Stream, OtherRequestsAreNotForAPin) {
  WithPin([](PinWorld& world) {
    for (const ULONG code :
         {IOCTL_KS_WRITE_STREAM, IOCTL_KS_METHOD, IOCTL_KS_DISABLE_EVENT, 0x22001CU}) {
      PinRequest request;
      EXPECT_EQ(world.Control(request, world.PinFile, code, 24, 24), STATUS_INVALID_DEVICE_REQUEST);
    }
  });
}

// A filler, a canceller and a stop concurrently: each request is completed exactly once, filled or
// cancelled.
TEST(Stream, RequestsCompleteOnceInAnyOrder) {
  WithPin(
      [](PinWorld& world) {
        world.SetState(KSSTATE_PAUSE);
        PinRequest requests[4];
        for (ULONG i = 0; i < 4; ++i) world.Read(requests[i], 2, 2 * i);
        {
          TestThread canceller([&] {
            IoCancelIrp(requests[0].Packet.Irp());
            IoCancelIrp(requests[2].Packet.Irp());
          });
          TestThread filler([&] {
            while (Fill(world, 7)) {
            }
          });
          TestThread resetter([&] { world.Pin().Frames.HandBack(false); });
        }
        world.SetState(KSSTATE_STOP);
        for (PinRequest& request : requests) {
          EXPECT_EQ(request.Packet.Completions, 1);
          const bool isFilled = request.Status() == STATUS_SUCCESS;
          EXPECT_TRUE(isFilled || request.Status() == STATUS_CANCELLED);
          EXPECT_EQ(PinWorld::HeaderOf(request, 1).DataUsed, isFilled ? 7U : 0U);
        }
      },
      50);
}

}  // namespace
}  // namespace lidcam::host
