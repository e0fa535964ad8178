#include "driver/usb/requests/control_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

constexpr auto kTimedOut = static_cast<NTSTATUS>(0xC00000B5);

TransportRecord& TransportOf(TransportWorld& world) {
  return *world.Device().TransportRecord;
}

// Records the driver's last vendor request, and answers it.
struct VendorEar {
  explicit VendorEar(TransportWorld& world) {
    world.Stack.Decide = [this](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0x17) return std::nullopt;
      _URB_CONTROL_VENDOR_OR_CLASS_REQUEST& vendor = urb.UrbControlVendorClassRequest;
      Said = vendor;
      auto* const data = static_cast<std::uint8_t*>(vendor.TransferBuffer);
      Sent.assign(data, data + vendor.TransferBufferLength);
      if (vendor.TransferFlags == 1) {
        for (ULONG i = 0; i < vendor.TransferBufferLength; ++i) {
          data[i] = static_cast<std::uint8_t>(0xA0 + i);
        }
      }
      if (Reported) vendor.TransferBufferLength = *Reported;
      return Answer;
    };
  }

  _URB_CONTROL_VENDOR_OR_CLASS_REQUEST Said{};
  std::vector<std::uint8_t> Sent;
  std::optional<ULONG> Reported;
  Verdict Answer;
};

TEST(ControlRequests, AVendorUrbCarriesEveryFieldInItsPlace) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    std::uint8_t byte = 0;
    std::uint32_t length = 1;
    // The callback's third argument is the index, the fourth the value; both and the request are cut.
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0x1A1, 0x2FF0A, 0x31234, &byte, &length), 0);
    EXPECT_EQ(ear.Said.Hdr.Length, sizeof(void*) == 8 ? 136 : 80);
    EXPECT_EQ(ear.Said.Hdr.Function, 0x17);
    EXPECT_EQ(ear.Said.TransferFlags, 1U);
    EXPECT_EQ(ear.Said.TransferBufferLength, 1U);
    EXPECT_EQ(ear.Said.TransferBufferMDL, nullptr);
    EXPECT_EQ(ear.Said.UrbLink, nullptr);
    EXPECT_EQ(ear.Said.RequestTypeReservedBits, 0);
    EXPECT_EQ(ear.Said.Request, 0xA1);
    EXPECT_EQ(ear.Said.Index, 0xFF0A);
    EXPECT_EQ(ear.Said.Value, 0x1234);
    EXPECT_EQ(byte, 0xA0);
    EXPECT_EQ(length, 1U);
  });
}

TEST(ControlRequests, AWriteSendsItsBytesAndNoDirectionBit) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    std::uint8_t bytes[] = {1, 2, 3};
    std::uint32_t length = 3;
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, bytes, &length), 0);
    EXPECT_EQ(ear.Said.TransferFlags, 0U);
    EXPECT_EQ(ear.Sent, (std::vector<std::uint8_t>{1, 2, 3}));
  });
}

TEST(ControlRequests, AWriteLeavesTheCallersBytes) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = [](URB& urb) {
      *static_cast<std::uint8_t*>(urb.UrbControlVendorClassRequest.TransferBuffer) = 0x77;
      return Verdict{};
    };
    std::uint8_t bytes[] = {1, 2, 3};
    std::uint32_t length = 3;
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, bytes, &length), 0);
    EXPECT_EQ(length, 3U);
    EXPECT_THAT(bytes, testing::ElementsAre(1, 2, 3));
  });
}

TEST(ControlRequests, ADeviceThatIsGoneFailsTheRequestAtOnceAndTouchesNoMemory) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Record().Connected = 0;
    world.Log.Clear();
    std::uint8_t byte = 0x55;
    std::uint32_t length = 1;
    host::FailPoolAllocation(1);
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 0, 0, &byte, &length), -1);
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 0, 0, nullptr, nullptr), -1);
    EXPECT_TRUE(host::IsPoolFailureToCome());
    host::FailPoolAllocation(0);
    EXPECT_EQ(byte, 0x55);
    EXPECT_EQ(length, 1U);
    EXPECT_TRUE(world.Log.Lines().empty());
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA1, 0, 0, &byte, &length, 1), kGone);
    world.Record().Connected = 1;
    world.Record().DeviceOpen = 0;
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA1, 0, 0, &byte, &length, 1), kGone);
    world.Record().DeviceOpen = 1;
    EXPECT_TRUE(world.Log.Lines().empty());
  });
}

// A device that is there and not open: the request is refused in its turn, as any other failed one.
TEST(ControlRequests, ADeviceThatIsNotOpenFailsTheRequestWithLength0) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Record().DeviceOpen = 0;
    world.Log.Clear();
    std::uint8_t byte = 0x55;
    std::uint32_t length = 1;
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 0, 0, &byte, &length), -1);
    EXPECT_EQ(byte, 0x55);
    EXPECT_EQ(length, 0U);
    EXPECT_TRUE(world.Log.Lines().empty());
    world.Record().DeviceOpen = 1;
  });
}

TEST(ControlRequests, ANullLengthMeansNoDataStage) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    std::uint8_t byte = 7;
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, &byte, nullptr), 0);
    EXPECT_EQ(ear.Said.TransferBufferLength, 0U);
    EXPECT_EQ(ear.Said.TransferBuffer, nullptr);
  });
}

TEST(ControlRequests, AWriteOfLength0CopiesNothingAndSendsNoBuffer) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    std::uint8_t byte = 7;
    std::uint32_t length = 0;
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, &byte, &length), 0);
    EXPECT_EQ(ear.Said.TransferBuffer, nullptr);
    EXPECT_EQ(length, 0U);
  });
}

TEST(ControlRequests, AReadSendsNothingOfTheCallersBuffer) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    std::uint8_t sent = 1;
    world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
      sent = *static_cast<std::uint8_t*>(urb.UrbControlVendorClassRequest.TransferBuffer);
      return Verdict{kUnsuccessful};
    };
    std::uint8_t byte = 0x55;
    std::uint32_t length = 1;
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 0, 0, &byte, &length), -1);
    EXPECT_EQ(sent, 0);
  });
}

TEST(ControlRequests, AFailedReadLeavesTheBufferAndReportsLength0) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    ear.Answer.Status = kUnsuccessful;
    std::uint8_t byte = 0x55;
    std::uint32_t length = 1;
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 1, 2, &byte, &length), -1);
    EXPECT_EQ(byte, 0x55);
    EXPECT_EQ(length, 0U);
  });
}

TEST(ControlRequests, AShortReadCopiesOnlyWhatTheStackReportedAndALongOneIsCut) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    ear.Reported = 2;
    std::uint8_t bytes[4] = {1, 1, 1, 1};
    std::uint32_t length = 4;
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 1, 2, bytes, &length), 0);
    EXPECT_EQ(length, 2U);
    EXPECT_THAT(bytes, testing::ElementsAre(0xA0, 0xA1, 1, 1));
    ear.Reported = 400;
    length = 4;
    EXPECT_EQ(UsbReadRequest(&TransportOf(world), 0xA1, 1, 2, bytes, &length), 0);
    EXPECT_EQ(length, 4U);
  });
}

TEST(ControlRequests, TheUrbsOwnStatusIsNotLookedAtInAVendorRequest) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    ear.Answer.UrbStatus = static_cast<USBD_STATUS>(0xC0000004);
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, nullptr, nullptr), 0);
  });
}

TEST(ControlRequests, AStackThatRefusesGivesItsStatusUnchanged) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    ear.Answer.Status = static_cast<NTSTATUS>(0xC0000185);
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0),
              static_cast<NTSTATUS>(0xC0000185));
  });
}

TEST(ControlRequests, WithoutMemoryOrAnIrpTheStatusTellsWhich) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    host::FailPoolAllocation(1);
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0), kNoMemory);
    host::FailPoolAllocation(1);
    EXPECT_EQ(AbortPipe(world.Record(), nullptr), kNoMemory);
    host::FailPoolAllocation(1);
    EXPECT_EQ(GetCurrentFrame(world.Record()), 0U);
    host::FailKernelCall("IoAllocateIrp", 1, kNoMemory);
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0), kUnsuccessful);
  });
}

TEST(ControlRequests, ADeviceThatNeverAnswersIsGivenUpAfter5SecondsAndTheNextCallerProceeds) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    bool isSilent = true;
    world.Stack.Decide = [&](URB&) -> std::optional<Verdict> {
      if (!isSilent) return std::nullopt;
      isSilent = false;
      return Verdict{STATUS_SUCCESS, 0, true};
    };
    const LONGLONG begin = host::Now();
    LONGLONG secondDone = 0;
    NTSTATUS second = kUnsuccessful;
    {
      std::unique_ptr<host::TestThread> other;
      NTSTATUS first = STATUS_SUCCESS;
      {
        host::TestThread one(
            [&] { first = VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0); });
        host::Sleep(host::kMillisecond);
        host::TestThread two([&] {
          second = VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0);
          secondDone = host::Now();
        });
      }
      EXPECT_EQ(first, kTimedOut);
    }
    EXPECT_EQ(second, STATUS_SUCCESS);
    EXPECT_EQ(secondDone - begin, 50'000'000);
  });
}

TEST(ControlRequests, AnAnswerThatComesInTheLastMomentIsTheIrpsStatus) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = [](URB&) { return Verdict{STATUS_SUCCESS, 0, true}; };
    const host::TestThread stack([&] {
      host::Sleep(50'000'000 - 1);
      world.Stack.AnswerSilent(static_cast<NTSTATUS>(0xC0000185));
    });
    const LONGLONG begin = host::Now();
    EXPECT_EQ(VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0),
              static_cast<NTSTATUS>(0xC0000185));
    EXPECT_EQ(host::Now() - begin, 50'000'000 - 1);
  });
}

// A recovery waits for a register access under way, which may take its full time.
TEST(ControlRequests, AnAbortWaitsForTheVendorRequestUnderWay) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0x17) return std::nullopt;
      return Verdict{STATUS_SUCCESS, 0, true};
    };
    const host::TestThread vendor(
        [&] { VendorRequest(TransportOf(world), 0xA0, 1, 2, nullptr, nullptr, 0); });
    host::Sleep(host::kMillisecond);
    world.Log.Clear();
    EXPECT_EQ(AbortPipe(world.Record(), nullptr), STATUS_SUCCESS);
    EXPECT_EQ(host::Now(), 50'000'000);
    EXPECT_EQ(world.Log.Lines().front(), "stack cancels the request");
  });
}

TEST(ControlRequests, AFrameNumberThatCouldNotBeHadIs0) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(GetCurrentFrame(world.Record()), 1000U);
    world.Stack.Decide = [](URB&) {
      return Verdict{STATUS_SUCCESS, static_cast<LONG>(0x80000300)};
    };
    EXPECT_EQ(GetCurrentFrame(world.Record()), 0U);
    world.Stack.Decide = [](URB&) { return Verdict{kUnsuccessful}; };
    EXPECT_EQ(GetCurrentFrame(world.Record()), 0U);
  });
}

TEST(ControlRequests, AFrameNumberIsAskedForWithAnEmptyUrb) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    unsigned asked = 0;
    world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
      const _URB_GET_CURRENT_FRAME_NUMBER& request = urb.UrbGetCurrentFrameNumber;
      EXPECT_EQ(request.Hdr.Length, sizeof(request));
      EXPECT_EQ(request.Hdr.Function, 7);
      EXPECT_EQ(request.Hdr.Status, 0);
      EXPECT_EQ(request.Hdr.UsbdDeviceHandle, nullptr);
      EXPECT_EQ(request.Hdr.UsbdFlags, 0U);
      EXPECT_EQ(request.FrameNumber, 0U);
      ++asked;
      return std::nullopt;
    };
    EXPECT_EQ(GetCurrentFrame(world.Record()), 1000U);
    EXPECT_EQ(asked, 1U);
  });
}

TEST(ControlRequests, AFailedWriteReportsLength0Too) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    VendorEar ear(world);
    ear.Answer.Status = kUnsuccessful;
    std::uint8_t bytes[] = {1, 2, 3};
    std::uint32_t length = 3;
    EXPECT_EQ(UsbWriteRequest(&TransportOf(world), 0xA0, 1, 2, bytes, &length), -1);
    EXPECT_EQ(length, 0U);
  });
}

TEST(ControlRequests, PipesAreResetOrAbortedByTheStreamsEntry) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    UsbDeviceRecord& record = world.Record();
    world.Log.Clear();
    EXPECT_EQ(ResetPipe(record, world.Stream(), record.InterfaceInformation, PipeRequest::Reset),
              0);
    EXPECT_EQ(ResetPipe(record, world.Stream(), record.InterfaceInformation, PipeRequest::Abort),
              0);
    world.Stream().PipeIndex = 0;
    EXPECT_EQ(ResetPipe(record, world.Stream(), record.InterfaceInformation, PipeRequest::Reset),
              0);
    world.Stream().PipeIndex = 2;
    EXPECT_EQ(ResetPipe(record, world.Stream(), record.InterfaceInformation, PipeRequest::Reset),
              kGone);
    EXPECT_THAT(world.Log.Lines(),
                testing::ElementsAre("urb reset pipe 1", "urb abort pipe 1", "urb reset pipe 0"));
  });
}

TEST(ControlRequests, ARearmedIrpLosesItsCancelAndKeepsItsStatus) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    KEVENT event;
    URB urb{};
    PIRP const irp = CreateUrbIrp(world.Record(), &event, &urb, UrbDone);
    ASSERT_NE(irp, nullptr);
    const IO_STACK_LOCATION& location = *IoGetNextIrpStackLocation(irp);
    EXPECT_EQ(location.MajorFunction, 0x0F);
    EXPECT_EQ(location.Parameters.DeviceIoControl.IoControlCode, 0x220003U);
    EXPECT_EQ(location.Parameters.Others.Argument1, &urb);
    EXPECT_EQ(location.Control, 0xE0);
    EXPECT_EQ(location.Context, &event);
    irp->Cancel = TRUE;
    irp->IoStatus.Status = STATUS_CANCELLED;
    RearmIrp(&urb, irp, &event, UrbDone);
    EXPECT_EQ(irp->Cancel, FALSE);
    EXPECT_EQ(irp->IoStatus.Status, STATUS_CANCELLED);
    EXPECT_EQ(location.Parameters.Others.Argument1, &event);
    EXPECT_EQ(location.Context, &urb);
    IoFreeIrp(irp);
  });
}

}  // namespace
}  // namespace lidcam::test
