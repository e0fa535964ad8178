// Requests on endpoint 0: the bytes on the wire, the answers, and their order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/usbd/usb_test_support.h"

namespace lidcam::host {
namespace {

using bus::ControlResult;
using bus::SetupPacket;
using bus::UsbStatus;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// Sets the bus's answer to every control request.
void Answer(ScriptedBus& bus, UsbStatus status, std::uint32_t transferred) {
  bus.OnControl = [=](const SetupPacket&, std::span<std::uint8_t> data) {
    std::fill_n(data.begin(), std::min<std::size_t>(transferred, data.size()), 0x5A);
    return ControlResult{status, transferred};
  };
}

TEST(GetDescriptor, AsksTheDeviceAndTellsHowMuchCame) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Ok, 193);
    Bytes buffer(521, 0xEE);
    SentUrb sent(world.Device());
    _URB_CONTROL_DESCRIPTOR_REQUEST& request = sent.Urb().UrbControlDescriptorRequest;
    request.Hdr.Length = sizeof(request);
    request.Hdr.Function = URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE;
    request.DescriptorType = 2;
    request.Index = 1;
    request.LanguageId = 0x0409;
    request.TransferBufferLength = 521;
    request.TransferBuffer = buffer.data();
    EXPECT_EQ(sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(sent.Status(), USBD_STATUS_SUCCESS);
    EXPECT_EQ(request.TransferBufferLength, 193U);
    EXPECT_EQ(buffer[192], 0x5A);
    EXPECT_EQ(buffer[193], 0xEE);
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0x80, 6, 0x0201, 0x0409, 521}));
  });
}

TEST(VendorRequest, ReadsAndWritesWithTheDirectionOfItsFlag) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Ok, 2);
    VendorRead read(world.Device());
    EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Data, (Bytes{0x5A, 0x5A}));
    VendorRead write(world.Device(), 2, 0);
    EXPECT_EQ(write.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(write.Request().TransferBufferLength, 2U);
    VendorRead empty(world.Device(), 0, 0);
    EXPECT_EQ(empty.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(empty.Request().TransferBufferLength, 0U);
    EXPECT_THAT(bus.Setups, ElementsAre(SetupPacket{0xC0, 0xA1, 0x1234, 0xFF09, 2},
                                        SetupPacket{0x40, 0xA1, 0x1234, 0xFF09, 2},
                                        SetupPacket{0x40, 0xA1, 0x1234, 0xFF09, 0}));
  });
}

TEST(VendorRequest, ShortReadIsAnErrorUnlessAllowed) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Ok, 1);
    VendorRead strict(world.Device());
    EXPECT_EQ(strict.Sent.Run(), STATUS_DEVICE_DATA_ERROR);
    EXPECT_EQ(strict.Sent.Status(), USBD_STATUS_ERROR_SHORT_TRANSFER);
    EXPECT_EQ(strict.Request().TransferBufferLength, 1U);
    VendorRead lenient(world.Device(), 2, USBD_TRANSFER_DIRECTION_IN | USBD_SHORT_TRANSFER_OK);
    EXPECT_EQ(lenient.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(lenient.Request().TransferBufferLength, 1U);
  });
}

TEST(VendorRequest, LongerAnswerIsCutToWhatWasAsked) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Ok, 7);
    VendorRead read(world.Device());
    EXPECT_EQ(read.Sent.Run(), STATUS_SUCCESS);
    EXPECT_EQ(read.Request().TransferBufferLength, 2U);
  });
}

struct BusEnd {
  UsbStatus Bus;
  USBD_STATUS Urb;
  NTSTATUS Irp;
};

TEST(VendorRequest, EndsAsTheBusSays) {
  const BusEnd ends[] = {
      {UsbStatus::Ok, USBD_STATUS_SUCCESS, STATUS_SUCCESS},
      {UsbStatus::Stalled, USBD_STATUS_STALL_PID, STATUS_DEVICE_DATA_ERROR},
      {UsbStatus::NotRecorded, USBD_STATUS_STALL_PID, STATUS_DEVICE_DATA_ERROR},
      {UsbStatus::Failed, USBD_STATUS_XACT_ERROR, STATUS_DEVICE_DATA_ERROR},
      {UsbStatus::TimedOut, USBD_STATUS_TIMEOUT, STATUS_IO_TIMEOUT},
      {UsbStatus::Aborted, USBD_STATUS_CANCELED, STATUS_CANCELLED},
      {UsbStatus::Disconnected, USBD_STATUS_DEVICE_GONE, STATUS_DEVICE_NOT_CONNECTED},
      {UsbStatus::EndOfCapture, USBD_STATUS_DEVICE_GONE, STATUS_DEVICE_NOT_CONNECTED},
  };
  for (const BusEnd& end : ends) {
    SCOPED_TRACE(bus::ToString(end.Bus));
    WithConfiguredDevice([&end](ScriptedBus& bus, UsbWorld& world) {
      Answer(bus, end.Bus, 2);
      VendorRead read(world.Device());
      EXPECT_EQ(read.Sent.Run(), end.Irp);
      EXPECT_EQ(read.Sent.Status(), end.Urb);
    });
  }
}

TEST(VendorRequest, ThatFindsTheDeviceGoneEndsAllTransfersToo) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    IsochronousRead stream(world.Device(), world.Pipe(1));
    EXPECT_EQ(stream.Sent.Send(), STATUS_PENDING);
    Answer(bus, UsbStatus::Disconnected, 0);
    VendorRead read(world.Device());
    EXPECT_EQ(read.Sent.Run(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(stream.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(Now(), 0);
  });
}

TEST(ControlRequests, AreCheckedBeforeTheyAreQueued) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    VendorRead read(world.Device());
    const auto refused = [&read](USBD_STATUS status) {
      EXPECT_EQ(read.Sent.Send(), STATUS_INVALID_PARAMETER);
      EXPECT_EQ(read.Sent.Status(), status);
    };
    read.Request().TransferBufferLength = 0x10000;
    refused(USBD_STATUS_INVALID_PARAMETER);
    read.Request().TransferBufferLength = 2;
    read.Request().TransferBuffer = nullptr;
    refused(USBD_STATUS_INVALID_PARAMETER);
    read.Request().TransferBuffer = read.Data.data();
    read.Request().UrbLink = &read.Sent.Urb();
    refused(USBD_STATUS_INVALID_PARAMETER);
    read.Request().UrbLink = nullptr;
    read.Request().TransferBufferMDL = reinterpret_cast<PMDL>(read.Data.data());
    refused(USBD_STATUS_INVALID_PARAMETER);
    read.Request().TransferBufferMDL = nullptr;
    --read.Request().Hdr.Length;
    refused(USBD_STATUS_INVALID_PARAMETER);
    ++read.Request().Hdr.Length;
    read.Request().Hdr.Function = 0x0016;  // reserved
    refused(USBD_STATUS_INVALID_URB_FUNCTION);
    EXPECT_THAT(bus.Setups, IsEmpty());
  });
}

TEST(ControlRequests, GoOverTheWireInTheOrderOfSubmission) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    VendorRead first(world.Device());
    VendorRead second(world.Device());
    VendorRead third(world.Device());
    USHORT index = 1;
    for (VendorRead* read : {&first, &second, &third}) {
      read->Request().Index = index++;
      EXPECT_EQ(read->Sent.Send(), STATUS_PENDING);
    }
    for (VendorRead* read : {&first, &second, &third}) read->Sent.Await();
    ASSERT_EQ(bus.Setups.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(bus.Setups[i].Index, i + 1);
  });
}

TEST(SilentDevice, HoldsARequestUntilItIsCancelledAndThoseBehindItGoOn) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Silent, 0);
    VendorRead silent(world.Device());
    VendorRead behind(world.Device());
    EXPECT_EQ(silent.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(behind.Sent.Send(), STATUS_PENDING);
    Sleep(5 * kSecond);
    EXPECT_FALSE(silent.Sent.IsDone());
    EXPECT_FALSE(behind.Sent.IsDone());
    EXPECT_EQ(silent.Sent.Status(), USBD_STATUS_PENDING);
    EXPECT_EQ(bus.Setups.size(), 1U);

    Answer(bus, UsbStatus::Ok, 2);
    EXPECT_TRUE(IoCancelIrp(silent.Sent.Irp()));
    EXPECT_EQ(silent.Sent.Await(), STATUS_CANCELLED);
    EXPECT_EQ(silent.Sent.Status(), USBD_STATUS_CANCELED);
    EXPECT_EQ(silent.Sent.CompletionLevel, DISPATCH_LEVEL);
    EXPECT_EQ(behind.Sent.Await(), STATUS_SUCCESS);
    EXPECT_EQ(Now(), 5 * kSecond);
  });
}

TEST(SilentDevice, LetsARequestBehindTheSilentOneBeCancelledFirst) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Silent, 0);
    VendorRead silent(world.Device());
    VendorRead behind(world.Device());
    EXPECT_EQ(silent.Sent.Send(), STATUS_PENDING);
    EXPECT_EQ(behind.Sent.Send(), STATUS_PENDING);
    EXPECT_TRUE(IoCancelIrp(behind.Sent.Irp()));
    EXPECT_EQ(behind.Sent.Await(), STATUS_CANCELLED);
    EXPECT_FALSE(silent.Sent.IsDone());
    EXPECT_TRUE(IoCancelIrp(silent.Sent.Irp()));
    EXPECT_EQ(silent.Sent.Await(), STATUS_CANCELLED);
  });
}

TEST(SilentDevice, ThatIsUnpluggedEndsItsRequest) {
  WithConfiguredDevice([](ScriptedBus& bus, UsbWorld& world) {
    Answer(bus, UsbStatus::Silent, 0);
    VendorRead silent(world.Device());
    EXPECT_EQ(silent.Sent.Send(), STATUS_PENDING);
    Sleep(kMillisecond);
    world.Stack.Unplug();
    EXPECT_EQ(silent.Sent.Await(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(silent.Sent.Status(), USBD_STATUS_DEVICE_GONE);
  });
}

// In either order, the request is completed once and nothing of it is left.
TEST(ControlRequests, CanBeCancelledAtAnyMoment) {
  int cancelled = 0;
  int finished = 0;
  WithConfiguredDevice(
      [&](ScriptedBus&, UsbWorld& world) {
        VendorRead read(world.Device());
        TestThread canceller([&read] { IoCancelIrp(read.Sent.Irp()); });
        const NTSTATUS status = read.Sent.Run();
        EXPECT_TRUE(status == STATUS_SUCCESS || status == STATUS_CANCELLED) << status;
        ++(status == STATUS_SUCCESS ? finished : cancelled);
        canceller.Join();
      },
      {}, 300);
  EXPECT_GT(cancelled, 0);
  EXPECT_GT(finished, 0);
}

TEST(ControlRequests, EndAtAnyMomentOfAnUnplugging) {
  int gone = 0;
  WithConfiguredDevice(
      [&](ScriptedBus&, UsbWorld& world) {
        VendorRead read(world.Device());
        TestThread unplugger([&world] { world.Stack.Unplug(); });
        const NTSTATUS status = read.Sent.Run();
        EXPECT_TRUE(status == STATUS_SUCCESS || status == STATUS_DEVICE_NOT_CONNECTED) << status;
        if (status != STATUS_SUCCESS) ++gone;
        unplugger.Join();
        EXPECT_EQ(read.Sent.Send(), STATUS_DEVICE_NOT_CONNECTED);
        EXPECT_EQ(read.Sent.Status(), USBD_STATUS_DEVICE_GONE);
      },
      {}, 100);
  EXPECT_GT(gone, 0);
}

TEST(UsbDeviceStack, RefusesWhatIsNoUrb) {
  WithConfiguredDevice([](ScriptedBus&, UsbWorld& world) {
    PIRP irp = IoAllocateIrp(world.Device()->StackSize, FALSE);
    const auto keep = [](PDEVICE_OBJECT, PIRP, PVOID)
                          NTAPI -> NTSTATUS { return STATUS_MORE_PROCESSING_REQUIRED; };
    for (const UCHAR major : {UCHAR{IRP_MJ_INTERNAL_DEVICE_CONTROL}, UCHAR{IRP_MJ_READ}}) {
      IO_STACK_LOCATION& next = *IoGetNextIrpStackLocation(irp);
      next.MajorFunction = major;
      next.Parameters.DeviceIoControl.IoControlCode = 0x220007;
      IoSetCompletionRoutine(irp, keep, nullptr, TRUE, TRUE, TRUE);
      EXPECT_EQ(IofCallDriver(world.Device(), irp), STATUS_INVALID_DEVICE_REQUEST);
    }
    IoFreeIrp(irp);
  });
}

TEST(UsbDeviceStack, CannotBeMadeWithoutThreadOrDeviceObject) {
  for (const char* call : {"PsCreateSystemThread", "ObReferenceObjectByHandle"}) {
    for (std::uint32_t nth = 1; nth <= 2; ++nth) {
      UnderManySeeds([&] {
        ScriptedBus bus;
        FailKernelCall(call, nth, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THROW(UsbDeviceStack{bus}, std::runtime_error) << call << nth;
      });
    }
  }
}

}  // namespace
}  // namespace lidcam::host
