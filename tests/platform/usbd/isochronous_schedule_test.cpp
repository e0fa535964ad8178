// Isochronous transfers in their frames. Time is virtual, so that every completion time is exact.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/usbd/usb_test_support.h"

namespace lidcam::host {
namespace {

using bus::IsochronousPacket;
using bus::IsochronousResult;
using bus::UsbStatus;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using PacketSpan = std::span<IsochronousPacket>;
using ByteSpan = std::span<std::uint8_t>;

ULONG CurrentFrame(PDEVICE_OBJECT device) {
  SentUrb sent(device);
  sent.Urb().UrbHeader.Length = sizeof(_URB_GET_CURRENT_FRAME_NUMBER);
  sent.Urb().UrbHeader.Function = URB_FUNCTION_GET_CURRENT_FRAME_NUMBER;
  EXPECT_EQ(sent.Run(), STATUS_SUCCESS);
  EXPECT_EQ(sent.Status(), USBD_STATUS_SUCCESS);
  return sent.Urb().UrbGetCurrentFrameNumber.FrameNumber;
}

TEST(FrameNumber, CountsMillisecondsOfInterruptTime) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        EXPECT_EQ(CurrentFrame(world.Device()), 700U);
        Sleep(4 * kMillisecond - 1);
        EXPECT_EQ(CurrentFrame(world.Device()), 703U);
        Sleep(1);
        EXPECT_EQ(CurrentFrame(world.Device()), 704U);
      },
      {.FirstFrame = 700});
}

TEST(IsochronousTransfer, OnAnIdlePipeStartsTwoFramesAheadAndEndsWithItsLastMicroframe) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Sleep(5 * kMillisecond + 7);
    IsochronousRead read(world.Device(), world.Pipe(1), 32);
    EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Request().StartFrame, 7U);
    EXPECT_EQ(read.Sent.CompletedAt, 11 * kMillisecond);
    EXPECT_THAT(bus.ReadTimes, ElementsAre(11 * kMillisecond));
    EXPECT_EQ(read.Request().ErrorCount, 0U);
    for (ULONG i = 0; i < 32; ++i) {
      EXPECT_EQ(read.Packet(i).Status, USBD_STATUS_SUCCESS);
      EXPECT_EQ(read.Packet(i).Length, 4U);
      EXPECT_EQ(read.Data[i * 1024], i + 1);
      EXPECT_EQ(read.Data[i * 1024 + 4], 0xEE);
    }
  });
}

TEST(IsochronousTransfer, AsSoonAsPossibleBehindOthersFollowsTheLastFrame) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    IsochronousRead first(world.Device(), world.Pipe(1), 32);
    IsochronousRead second(world.Device(), world.Pipe(1), 12);  // one frame and a half
    IsochronousRead third(world.Device(), world.Pipe(1), 8);
    for (IsochronousRead* read : {&first, &second, &third}) {
      EXPECT_EQ(read->Sent.Send(), STATUS_PENDING);
    }
    for (IsochronousRead* read : {&first, &second, &third}) read->Sent.Await();
    EXPECT_EQ(first.Request().StartFrame, 2U);
    EXPECT_EQ(second.Request().StartFrame, 6U);
    EXPECT_EQ(third.Request().StartFrame, 8U);
    EXPECT_EQ(first.Sent.CompletedAt, 6 * kMillisecond);
    EXPECT_EQ(second.Sent.CompletedAt, 6 * kMillisecond + 15000);
    EXPECT_EQ(third.Sent.CompletedAt, 9 * kMillisecond);
  });
}

TEST(IsochronousTransfer, StartsInTheFrameThatTheDriverChose) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        // As in the stream's first transfers: ten frames ahead, 32 apart.
        std::vector<std::unique_ptr<IsochronousRead>> reads;
        for (ULONG i = 0; i < 7; ++i) {
          reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 32));
          reads.back()->StartAt(1000 + 10 + 32 * i);
          EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
        }
        for (ULONG i = 0; i < 7; ++i) {
          EXPECT_EQ(reads[i]->Sent.Await(), STATUS_SUCCESS);
          EXPECT_EQ(reads[i]->Sent.CompletedAt, (14 + 32 * LONGLONG{i}) * kMillisecond);
        }
      },
      {.FirstFrame = 1000});
}

TEST(IsochronousTransfer, MayStartFromTheNextFrameToTheEndOfTheRange) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    Sleep(100 * kMillisecond);
    const auto statusAt = [&world](ULONG frame) {
      IsochronousRead read(world.Device(), world.Pipe(1), 8);
      read.StartAt(frame);
      const NTSTATUS sent = read.Sent.Send();
      if (sent == STATUS_PENDING) {
        IoCancelIrp(read.Sent.Irp());
        read.Sent.Await();
        return USBD_STATUS_SUCCESS;
      }
      EXPECT_EQ(sent, STATUS_INVALID_PARAMETER);
      return read.Sent.Status();
    };
    EXPECT_EQ(statusAt(99), USBD_STATUS_BAD_START_FRAME);
    EXPECT_EQ(statusAt(100), USBD_STATUS_BAD_START_FRAME);
    EXPECT_EQ(statusAt(101), USBD_STATUS_SUCCESS);
    EXPECT_EQ(statusAt(1124), USBD_STATUS_SUCCESS);
    EXPECT_EQ(statusAt(1125), USBD_STATUS_BAD_START_FRAME);
    // Frame 200 is before the pipe's last scheduled frame.
    EXPECT_EQ(statusAt(200), USBD_STATUS_BAD_START_FRAME);
  });
}

TEST(IsochronousTransfer, ThatComesTooLateIsMovedWhereTheTimeOfTheDeviceStandsStill) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        Sleep(100 * kMillisecond);
        IsochronousRead late(world.Device(), world.Pipe(1), 8);
        IsochronousRead next(world.Device(), world.Pipe(1), 8);
        IsochronousRead tooEarly(world.Device(), world.Pipe(1), 8);
        late.StartAt(40);
        next.StartAt(72);
        tooEarly.StartAt(1125);
        EXPECT_EQ(late.Sent.Send(), STATUS_PENDING);
        EXPECT_EQ(next.Sent.Send(), STATUS_PENDING);
        EXPECT_EQ(tooEarly.Sent.Send(), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(late.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(next.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(late.Sent.CompletedAt, 401 * kMillisecond);
        EXPECT_EQ(next.Sent.CompletedAt, 402 * kMillisecond);
      },
      {.Frames = FrameRule::Patient});
}

TEST(IsochronousTransfer, ThatComesTooLateStartsAsSoonAsPossibleWhereThreadsRunLate) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        Sleep(100 * kMillisecond);
        IsochronousRead late(world.Device(), world.Pipe(1), 8);
        IsochronousRead next(world.Device(), world.Pipe(1), 8);
        IsochronousRead inTime(world.Device(), world.Pipe(1), 8);
        IsochronousRead tooEarly(world.Device(), world.Pipe(1), 8);
        late.StartAt(40);
        next.StartAt(72);
        inTime.StartAt(110);
        tooEarly.StartAt(1125);
        EXPECT_EQ(late.Sent.Send(), STATUS_PENDING);
        EXPECT_EQ(next.Sent.Send(), STATUS_PENDING);
        EXPECT_EQ(inTime.Sent.Send(), STATUS_PENDING);
        EXPECT_EQ(tooEarly.Sent.Send(), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(late.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(next.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(inTime.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(late.Sent.CompletedAt, 103 * kMillisecond);
        EXPECT_EQ(next.Sent.CompletedAt, 104 * kMillisecond);
        EXPECT_EQ(inTime.Sent.CompletedAt, 111 * kMillisecond);
      },
      {.Frames = FrameRule::AsSoonAsPossible});
}

TEST(IsochronousTransfer, BehindALateOneWaitsAsMuchLongerWhereTheTimeOfTheDeviceStandsStill) {
  const auto readTimes = [](FrameRule frames) {
    std::vector<LONGLONG> times;
    WithConfiguredDevice(
        [&times](ScriptedBus& bus, UsbWorld& world) {
          bus.OnRead = [&bus](std::span<std::uint8_t>, std::span<bus::IsochronousPacket>) {
            if (bus.ReadTimes.size() == 1) Sleep(50 * kMillisecond);
            return bus::IsochronousResult{};
          };
          std::vector<std::unique_ptr<IsochronousRead>> reads;
          for (int i = 0; i < 4; ++i) {
            reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 8));
            EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
          }
          for (const auto& read : reads) EXPECT_EQ(read->Sent.Await(), STATUS_SUCCESS);
          times = bus.ReadTimes;
        },
        {.Frames = frames});
    for (LONGLONG& time : times) time /= kMillisecond;
    return times;
  };
  EXPECT_THAT(readTimes(FrameRule::Strict), ElementsAre(3, 53, 53, 53));
  EXPECT_THAT(readTimes(FrameRule::Patient), ElementsAre(301, 351, 352, 353));
}

int g_timesRead = 0;

LONGLONG CountedTime() {
  ++g_timesRead;
  return InterruptTime();
}

TEST(IsochronousTransfer, BehindOthersIsReadInTimeWithoutWakingAThreadWhereThreadsRunLate) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        std::vector<std::unique_ptr<IsochronousRead>> reads;
        const auto send = [&] {
          reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 32));
          EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
          Sleep(1);
        };
        send();
        const int before = g_timesRead;
        for (int i = 1; i < 7; ++i) send();
        // Once for the place of each transfer; a thread that looks for work reads it again.
        EXPECT_EQ(g_timesRead - before, 6);
        for (int i = 0; i < 7; ++i) {
          EXPECT_EQ(reads[static_cast<std::size_t>(i)]->Sent.Await(), STATUS_SUCCESS);
          EXPECT_EQ(reads[static_cast<std::size_t>(i)]->Sent.CompletedAt,
                    (6 + 4 * i) * kMillisecond);
        }
      },
      {.LooksAtEachRequest = false, .Now = CountedTime});
}

TEST(IsochronousTransfer, IsNotLookedAtForAControlRequestWhereThreadsRunLate) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        IsochronousRead transfer(world.Device(), world.Pipe(1), 32);
        EXPECT_EQ(transfer.Sent.Send(), STATUS_PENDING);
        Sleep(1);
        const int before = g_timesRead;
        VendorRead read(world.Device());
        EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
        EXPECT_EQ(g_timesRead, before);
        EXPECT_EQ(transfer.Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(transfer.Sent.CompletedAt, 6 * kMillisecond);
      },
      {.LooksAtEachRequest = false, .Now = CountedTime});
}

/// Expects completions of transfers of four frames, each sent again at once, at these times in ms.
void ExpectCompletions(std::size_t transfers, LONGLONG delay, const std::vector<LONGLONG>& times) {
  WithConfiguredDevice(
      [&](ScriptedBus& bus, UsbWorld& world) {
        std::vector<LONGLONG> completions;
        std::vector<std::unique_ptr<IsochronousRead>> reads;
        for (std::size_t i = 0; i < transfers; ++i) {
          reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 32));
          IsochronousRead& read = *reads.back();
          read.Sent.OnCompletion = [&] {
            completions.push_back(InterruptTime() / kMillisecond);
            if (completions.size() > times.size()) return;
            EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
          };
          EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
          Sleep(1);  // the schedule's thread has seen it, and waits for the first one's end
        }
        while (completions.size() < times.size() + transfers) Sleep(kMillisecond);
        EXPECT_EQ(bus.ReadTimes.size(), times.size() + transfers);
        completions.resize(times.size());
        EXPECT_EQ(completions, times);
      },
      {.LooksAtEachRequest = false, .CompletionDelay = delay});
}

TEST(IsochronousTransfer, IsCompletedWithTheNextWhereThreadsAreToWakeSeldom) {
  ExpectCompletions(7, 4 * kMillisecond, {6, 14, 14, 22, 22, 30, 30, 38, 38, 46, 46, 54, 54, 62});
  ExpectCompletions(3, 0, {6, 10, 14, 18, 22, 26, 30, 34, 38, 42, 46, 50, 54, 58});
}

TEST(IsochronousTransfer, IsCompletedWithOthersOnlyWhileHalfOfThemAreOnTheBus) {
  ExpectCompletions(7, 1000 * kMillisecond,
                    {6, 18, 18, 18, 30, 30, 30, 42, 42, 42, 54, 54, 54, 66});
  ExpectCompletions(3, 1000 * kMillisecond,
                    {6, 10, 14, 18, 22, 26, 30, 34, 38, 42, 46, 50, 54, 58});
}

using Reads = std::vector<std::unique_ptr<IsochronousRead>>;

/// Sends seven transfers of four frames. The schedule's thread waits for the end of the first.
Reads SendSeven(UsbWorld& world) {
  Reads reads;
  for (int i = 0; i < 7; ++i) {
    reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 32));
    EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
    if (i == 0) Sleep(1);
  }
  return reads;
}

TEST(IsochronousTransfer, IsNotHeldBackByTheNextOneThatWaitsForTheDevice) {
  WithConfiguredDevice(
      [](ScriptedBus& bus, UsbWorld& world) {
        const Reads reads = SendSeven(world);
        // The second and the third are completed together, at 14: the third's packets come at 3000.
        bus.OnHasReceived = [] { return false; };
        bus.OnRead = [&bus](ByteSpan, PacketSpan) {
          if (bus.ReadTimes.size() == 3) Sleep(2986 * kMillisecond);
          return IsochronousResult{};
        };
        for (const auto& read : reads) EXPECT_EQ(read->Sent.Await(), STATUS_SUCCESS);
        EXPECT_EQ(reads[1]->Sent.CompletedAt, 14 * kMillisecond);
        EXPECT_EQ(reads[2]->Sent.CompletedAt, 3000 * kMillisecond);
      },
      {.LooksAtEachRequest = false, .CompletionDelay = 4 * kMillisecond});
}

TEST(IsochronousTransfer, WhoseEndIsOverIsCancelledWhileItWaitsForTheNext) {
  WithConfiguredDevice(
      [](ScriptedBus& bus, UsbWorld& world) {
        const Reads reads = SendSeven(world);
        Sleep(11 * kMillisecond - 1);  // the second has ended, and is to be completed at 14
        EXPECT_EQ(bus.ReadTimes.size(), 1U);
        IoCancelIrp(reads[1]->Sent.Irp());
        EXPECT_EQ(reads[1]->Sent.Await(), STATUS_CANCELLED);
        EXPECT_EQ(reads[1]->Sent.CompletedAt, 11 * kMillisecond);
        EXPECT_EQ(reads[0]->Sent.Await(), STATUS_SUCCESS);
        for (std::size_t i = 2; i < 7; ++i) EXPECT_EQ(reads[i]->Sent.Await(), STATUS_SUCCESS);
      },
      {.LooksAtEachRequest = false, .CompletionDelay = 4 * kMillisecond});
}

TEST(IsochronousTransfer, MayStartInAFrameWhoseNumberHasWrappedAround) {
  WithConfiguredDevice(
      [](ScriptedBus&, UsbWorld& world) {
        IsochronousRead read(world.Device(), world.Pipe(1), 8);
        read.StartAt(3);
        EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
        EXPECT_EQ(read.Sent.CompletedAt, 9 * kMillisecond);  // 0xFFFFFFFB + 8
      },
      {.FirstFrame = 0xFFFFFFFB});
}

TEST(IsochronousTransfer, ResubmittedByItsCompletionLeavesNoFrameOut) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    std::vector<std::unique_ptr<IsochronousRead>> reads;
    int left = 40;
    for (int i = 0; i < 3; ++i) {
      reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 8));
      IsochronousRead& read = *reads.back();
      read.Sent.OnCompletion = [&read, &left] {
        if (left-- <= 0) return;
        EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
      };
      EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    }
    while (left > 0) Sleep(kMillisecond);
    Sleep(10 * kMillisecond);
    ASSERT_EQ(bus.ReadTimes.size(), 43U);
    for (std::size_t i = 0; i < bus.ReadTimes.size(); ++i) {
      EXPECT_EQ(bus.ReadTimes[i], (3 + static_cast<LONGLONG>(i)) * kMillisecond);
    }
  });
}

TEST(IsochronousPackets, TellTheirOwnLengthAndEnd) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnRead = [](ByteSpan, PacketSpan packets) {
      packets[0].Length = 0;
      packets[1].Length = 1024;
      packets[2] = {packets[2].Offset, 0, UsbStatus::Failed};
      packets[3] = {packets[3].Offset, 0, UsbStatus::Stalled};
      return IsochronousResult{};
    };
    IsochronousRead read(world.Device(), world.Pipe(1), 8);
    EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Sent.Status(), USBD_STATUS_SUCCESS);
    EXPECT_EQ(read.Request().ErrorCount, 2U);
    EXPECT_EQ(read.Packet(0).Length, 0U);
    EXPECT_EQ(read.Packet(0).Status, USBD_STATUS_SUCCESS);
    EXPECT_EQ(read.Packet(1).Length, 1024U);
    EXPECT_EQ(read.Packet(2).Status, USBD_STATUS_XACT_ERROR);
    EXPECT_EQ(read.Packet(3).Status, USBD_STATUS_STALL_PID);
    EXPECT_EQ(read.Packet(4).Length, 4U);
  });
}

TEST(IsochronousPackets, AllInErrorFailTheTransfer) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnRead = [](ByteSpan, PacketSpan packets) {
      for (IsochronousPacket& packet : packets) packet = {packet.Offset, 0, UsbStatus::Failed};
      return IsochronousResult{};
    };
    IsochronousRead read(world.Device(), world.Pipe(1), 8);
    EXPECT_EQ(read.Sent.Run(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(read.Sent.Status(), USBD_STATUS_ISOCH_REQUEST_FAILED);
  });
}

TEST(IsochronousPackets, MayLieUnevenlyAndAreNeverWrittenBeyondTheirRoom) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    IsochronousRead read(world.Device(), world.Pipe(1), 3);
    read.Packet(1).Offset = 2;
    read.Packet(2).Offset = 100;
    read.Request().TransferBufferLength = 104;
    EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Packet(0).Length, 2U);
    EXPECT_EQ(read.Packet(0).Status, USBD_STATUS_DATA_OVERRUN);
    EXPECT_EQ(read.Packet(1).Length, 4U);
    EXPECT_EQ(read.Packet(2).Length, 4U);
    EXPECT_EQ(read.Request().ErrorCount, 1U);
    EXPECT_EQ(Bytes(read.Data.begin(), read.Data.begin() + 7), (Bytes{1, 1, 2, 2, 2, 2, 0xEE}));
    EXPECT_EQ(Bytes(read.Data.begin() + 99, read.Data.begin() + 105),
              (Bytes{0xEE, 3, 3, 3, 3, 0xEE}));
    EXPECT_EQ(bus.ReadTimes.size(), 1U);
  });
}

TEST(IsochronousTransfer, IsCheckedBeforeItIsQueued) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    IsochronousRead read(world.Device(), world.Pipe(1), 8);
    const auto refused = [&read](USBD_STATUS status) {
      EXPECT_EQ(read.Sent.Send(), STATUS_INVALID_PARAMETER);
      EXPECT_EQ(read.Sent.Status(), status);
    };
    _URB_ISOCH_TRANSFER& urb = read.Request();
    const auto with = [&](auto& field, auto value) {
      const auto before = field;
      field = static_cast<std::remove_cvref_t<decltype(field)>>(value);
      refused(USBD_STATUS_INVALID_PARAMETER);
      field = before;
    };
    with(urb.NumberOfPackets, 0);
    with(urb.NumberOfPackets, 1025);
    with(urb.NumberOfPackets, 10);  // more than the URB's length holds
    with(urb.Hdr.Length, 20);
    with(urb.TransferBuffer, nullptr);
    with(urb.TransferBufferMDL, reinterpret_cast<PMDL>(&read));
    with(urb.UrbLink, &read.Sent.Urb());
    with(urb.TransferFlags, USBD_START_ISO_TRANSFER_ASAP);
    with(urb.TransferBufferLength, 7 * 1024 - 1);
    with(read.Packet(3).Offset, 5000);
    urb.PipeHandle = world.Pipe(0).PipeHandle;
    refused(USBD_STATUS_INVALID_PIPE_HANDLE);
    urb.PipeHandle = nullptr;
    refused(USBD_STATUS_INVALID_PIPE_HANDLE);
    EXPECT_THAT(bus.ReadTimes, IsEmpty());
  });
}

TEST(AbortPipe, TakesAllTransfersBackBeforeItEndsItself) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    std::vector<int> order;
    std::vector<std::unique_ptr<IsochronousRead>> reads;
    for (int i = 0; i < 3; ++i) {
      reads.push_back(std::make_unique<IsochronousRead>(world.Device(), world.Pipe(1), 32));
      reads.back()->Sent.OnCompletion = [i, &order] { order.push_back(i); };
      EXPECT_EQ(reads.back()->Sent.Send(), STATUS_PENDING);
    }
    Sleep(7 * kMillisecond);  // the first is completed, the second in progress
    SentUrb abort(world.Device());
    abort.OnCompletion = [&order] { order.push_back(99); };
    MakePipeRequest(abort, URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle);
    EXPECT_EQ(abort.Run(), STATUS_SUCCESS);
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 99));
    EXPECT_EQ(Now(), 7 * kMillisecond);
    EXPECT_EQ(reads[0]->Sent.Status(), USBD_STATUS_SUCCESS);
    for (int i = 1; i < 3; ++i) {
      IsochronousRead& read = *reads[static_cast<std::size_t>(i)];
      EXPECT_EQ(read.Sent.Await(), STATUS_CANCELLED);
      EXPECT_EQ(read.Sent.Status(), USBD_STATUS_CANCELED);
      EXPECT_EQ(read.Packet(31).Status, USBD_STATUS_NOT_ACCESSED);
      EXPECT_EQ(read.Request().ErrorCount, 32U);
    }
    EXPECT_THAT(bus.Aborts, ElementsAre(0x82));
    EXPECT_EQ(bus.ReadTimes.size(), 1U);
    // The pipe is idle again.
    IsochronousRead next(world.Device(), world.Pipe(1), 8);
    EXPECT_EQ(next.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(next.Request().StartFrame, 9U);
  });
}

TEST(AbortPipe, OnAnIdlePipeSucceedsAndOnAnUnknownOneFails) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    for (ULONG i = 0; i < 2; ++i) {
      EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(i).PipeHandle),
                STATUS_SUCCESS);
    }
    SentUrb abort(world.Device());
    MakePipeRequest(abort, URB_FUNCTION_ABORT_PIPE, &abort);
    EXPECT_EQ(abort.Send(), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(abort.Status(), USBD_STATUS_INVALID_PIPE_HANDLE);
  });
}

TEST(SilentBus, LeavesATransferOutUntilItIsAbortedWhileOthersGoOn) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    bus.OnRead = [&bus](ByteSpan, PacketSpan) {
      const bool isFirst = bus.ReadTimes.size() == 1;
      return IsochronousResult{isFirst ? UsbStatus::Silent : UsbStatus::Ok, 0};
    };
    IsochronousRead silent(world.Device(), world.Pipe(1), 8);
    IsochronousRead other(world.Device(), world.Pipe(1), 8);
    EXPECT_EQ(silent.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(other.Sent.Run(), STATUS_SUCCESS);
    Sleep(kSecond);
    EXPECT_FALSE(silent.Sent.IsDone());
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle),
              STATUS_SUCCESS);
    EXPECT_EQ(silent.Sent.Await(), STATUS_CANCELLED);
  });
}

TEST(IsochronousTransfer, CanBeCancelledAloneAndThoseBehindKeepTheirFrames) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    IsochronousRead first(world.Device(), world.Pipe(1), 8);
    IsochronousRead second(world.Device(), world.Pipe(1), 8);
    EXPECT_EQ(first.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(second.Sent.Send(), STATUS_PENDING);
    EXPECT_TRUE(IoCancelIrp(first.Sent.Irp()));
    EXPECT_EQ(first.Sent.Await(), STATUS_CANCELLED);
    EXPECT_EQ(first.Sent.Status(), USBD_STATUS_CANCELED);
    EXPECT_EQ(second.Sent.Await(), STATUS_SUCCESS);
    EXPECT_EQ(second.Sent.CompletedAt, 4 * kMillisecond);
  });
}

TEST(Unplugging, EndsEverythingThatIsOutAndAllThatComesLater) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    IsochronousRead first(world.Device(), world.Pipe(1), 32);
    IsochronousRead second(world.Device(), world.Pipe(1), 32);
    EXPECT_EQ(first.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(second.Sent.Send(), STATUS_PENDING);
    Sleep(5 * kMillisecond);
    world.Stack.Unplug();
    for (IsochronousRead* read : {&first, &second}) {
      EXPECT_EQ(read->Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
      EXPECT_EQ(read->Sent.Status(), USBD_STATUS_DEVICE_GONE);
      EXPECT_EQ(read->Sent.CompletionLevel, DISPATCH_LEVEL);
    }
    EXPECT_EQ(Now(), 5 * kMillisecond);
    EXPECT_EQ(first.Sent.Send(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(first.Sent.Status(), USBD_STATUS_DEVICE_GONE);
    EXPECT_EQ(RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle),
              STATUS_DEVICE_NOT_CONNECTED);
  });
}

TEST(Unplugging, ThatOnlyTheBusNoticesEndsEverythingToo) {
  for (const UsbStatus end : {UsbStatus::Disconnected, UsbStatus::EndOfCapture}) {
    WithConfiguredDevice([end](ScriptedBus& bus, UsbWorld& world) {
      bus.OnRead = [end](ByteSpan, PacketSpan) { return IsochronousResult{end, 0}; };
      IsochronousRead first(world.Device(), world.Pipe(1), 8);
      IsochronousRead second(world.Device(), world.Pipe(1), 8);
      EXPECT_EQ(first.Sent.Send(), STATUS_PENDING);
      EXPECT_EQ(second.Sent.Send(), STATUS_PENDING);
      EXPECT_EQ(first.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
      EXPECT_EQ(second.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
      EXPECT_EQ(Now(), 3 * kMillisecond);
    });
  }
}

// Every transfer is completed exactly once, for any time and kind of cancellation.
TEST(IsochronousTransfer, CanBeTakenBackAtAnyMoment) {
  int succeeded = 0;
  int takenBack = 0;
  for (int way = 0; way < 4; ++way) {
    WithConfiguredDevice(
        [&](ScriptedBus&, UsbWorld& world) {
          IsochronousRead first(world.Device(), world.Pipe(1), 8);
          IsochronousRead second(world.Device(), world.Pipe(1), 8);
          EXPECT_EQ(first.Sent.Send(), STATUS_PENDING);
          EXPECT_EQ(second.Sent.Send(), STATUS_PENDING);
          TestThread taker([&] {
            Sleep(3 * kMillisecond);  // just at the end of the first one
            if (way == 0) IoCancelIrp(first.Sent.Irp());
            if (way == 1) world.Stack.Unplug();
            if (way == 2) world.SelectSetting(0);
            if (way == 3) {
              RunPipeRequest(world.Device(), URB_FUNCTION_ABORT_PIPE, world.Pipe(1).PipeHandle);
            }
          });
          ++(first.Sent.Await() == STATUS_SUCCESS ? succeeded : takenBack);
          second.Sent.Await();
          taker.Join();
        },
        {}, 60);
  }
  EXPECT_GT(succeeded, 0);
  EXPECT_GT(takenBack, 0);
}

TEST(UsbDeviceStack, ThatGoesEndsWhatIsStillOut) {
  UnderManySeeds([] {
    ScriptedBus bus;
    auto world = std::make_unique<UsbWorld>(bus);
    ASSERT_EQ(world->Configure(SmallConfiguration()), STATUS_SUCCESS);
    ASSERT_EQ(world->SelectSetting(1), STATUS_SUCCESS);
    bus.OnControl = [](const bus::SetupPacket&, ByteSpan) {
      return bus::ControlResult{UsbStatus::Silent, 0};
    };
    IsochronousRead stream(world->Device(), world->Pipe(1), 8);
    VendorRead read(world->Device());
    EXPECT_EQ(stream.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(read.Sent.Send(), STATUS_PENDING);
    world.reset();
    EXPECT_EQ(stream.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(read.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
  });
}

}  // namespace
}  // namespace lidcam::host
