// Requests in stacks of devices, in both worlds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;

// Each test runs on the machine's clock and threads, and under many seeds.
class Irp : public testing::TestWithParam<bool> {
 protected:
  static void InWorld(const std::function<void()>& test) {
    if (GetParam()) {
      UnderManySeeds(test);
    } else {
      test();
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Worlds, Irp, testing::Bool(),
                         [](const auto& world) { return world.param ? "Simulated" : "RealTime"; });

TEST_P(Irp, AFreshOneStandsAboveItsTopmostLocation) {
  InWorld([] {
    const PIRP irp = IoAllocateIrp(3, FALSE);
    ASSERT_NE(irp, nullptr);
    EXPECT_EQ(irp->Type, 6);
    EXPECT_EQ(irp->Size, sizeof(IRP) + 3 * sizeof(IO_STACK_LOCATION));
    EXPECT_EQ(irp->StackCount, 3);
    EXPECT_EQ(irp->CurrentLocation, 4);
    auto* const locations = reinterpret_cast<PIO_STACK_LOCATION>(irp + 1);
    EXPECT_EQ(IoGetNextIrpStackLocation(irp), locations + 2);
    EXPECT_EQ(locations[0].MajorFunction, 0);
    EXPECT_EQ(irp->CancelRoutine, nullptr);
    IoFreeIrp(irp);
  });
}

TEST_P(Irp, ReachesTheDriverWithTheLocationThatTheSenderFilled) {
  InWorld([] {
    ULONG code = 0;
    PVOID argument = nullptr;
    PDEVICE_OBJECT seen = nullptr;
    TestDriver driver([&](PDEVICE_OBJECT device, PIRP irp) {
      const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
      code = location.Parameters.DeviceIoControl.IoControlCode;
      argument = location.Parameters.Others.Argument1;
      seen = location.DeviceObject;
      EXPECT_EQ(device, seen);
      EXPECT_EQ(irp->CurrentLocation, 1);
      irp->IoStatus.Information = 7;
      return Complete(irp, STATUS_SUCCESS);
    });
    Request request;
    IoGetNextIrpStackLocation(request.Irp())->Parameters.Others.Argument1 = &code;
    IoGetNextIrpStackLocation(request.Irp())->Parameters.DeviceIoControl.IoControlCode = 0x220003;
    EXPECT_EQ(request.Send(driver.Device()), STATUS_SUCCESS);
    EXPECT_EQ(code, 0x220003U);
    EXPECT_EQ(argument, &code);
    EXPECT_EQ(seen, driver.Device());
    EXPECT_EQ(request.Completions, 1);
    EXPECT_EQ(request->CurrentLocation, 2);
    EXPECT_EQ(request->IoStatus.Information, 7U);
    request.Free();
  });
}

TEST_P(Irp, ADriverThatHasNoRoutineRefuses) {
  InWorld([] {
    TestDriver driver(Answer(STATUS_SUCCESS));
    Request request;
    request.Arm();
    IoGetNextIrpStackLocation(request.Irp())->MajorFunction = IRP_MJ_READ;
    EXPECT_EQ(IoCallDriver(driver.Device(), request.Irp()), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(request->IoStatus.Status, STATUS_INVALID_DEVICE_REQUEST);
    request.Free();
  });
}

struct InvokeRow {
  UCHAR Control;
  NTSTATUS Status;
  bool IsCancelled;
  bool IsInvoked;
};

// The topmost routine always stops the completion; the row is about the one below it.
TEST_P(Irp, CallsACompletionRoutineForTheEndsThatItAskedFor) {
  InWorld([] {
    const InvokeRow rows[] = {
        {0x40, STATUS_SUCCESS, false, true},       {0x40, STATUS_UNSUCCESSFUL, false, false},
        {0x40, STATUS_CANCELLED, true, false},     {0x80, STATUS_SUCCESS, false, false},
        {0x80, STATUS_UNSUCCESSFUL, false, true},  {0x80, STATUS_SUCCESS, true, false},
        {0x20, STATUS_SUCCESS, false, false},      {0x20, STATUS_SUCCESS, true, true},
        {0x20, STATUS_UNSUCCESSFUL, false, false}, {0x20, STATUS_CANCELLED, true, true},
        {0x00, STATUS_SUCCESS, true, false},       {0xE0, STATUS_CANCELLED, true, true},
    };
    for (const InvokeRow& row : rows) {
      int invoked = 0;
      Completion completion{[&](PDEVICE_OBJECT, PIRP) {
        ++invoked;
        return STATUS_CONTINUE_COMPLETION;
      }};
      TestDriver lower([&](PDEVICE_OBJECT, PIRP irp) {
        irp->Cancel = row.IsCancelled ? TRUE : FALSE;
        return Complete(irp, row.Status);
      });
      TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
        IoCopyCurrentIrpStackLocationToNext(irp);
        IoSetCompletionRoutine(irp, Completion::Run, &completion, (row.Control & 0x40) != 0,
                               (row.Control & 0x80) != 0, (row.Control & 0x20) != 0);
        return IoCallDriver(lower.Device(), irp);
      });
      Request request(2);
      EXPECT_EQ(request.Send(upper.Device()), row.Status);
      EXPECT_EQ(invoked, row.IsInvoked ? 1 : 0) << int{row.Control} << " " << row.Status;
      EXPECT_EQ(request.Completions, 1);
      request.Free();
    }
  });
}

TEST_P(Irp, CallsCompletionRoutinesFromBelowEachWithTheDeviceThatSetIt) {
  InWorld([] {
    std::vector<std::string> order;
    std::vector<PDEVICE_OBJECT> devices;
    TestDriver bottom(Answer(STATUS_SUCCESS));
    Completion ofMiddle{[&](PDEVICE_OBJECT device, PIRP) {
      order.emplace_back("middle");
      devices.push_back(device);
      return STATUS_CONTINUE_COMPLETION;
    }};
    TestDriver middle([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      IoSetCompletionRoutine(irp, Completion::Run, &ofMiddle, TRUE, TRUE, TRUE);
      return IoCallDriver(bottom.Device(), irp);
    });
    Completion ofTop{[&](PDEVICE_OBJECT device, PIRP) {
      order.emplace_back("top");
      devices.push_back(device);
      return STATUS_CONTINUE_COMPLETION;
    }};
    TestDriver top([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      IoSetCompletionRoutine(irp, Completion::Run, &ofTop, TRUE, TRUE, TRUE);
      return IoCallDriver(middle.Device(), irp);
    });
    Request request(3, [&](PDEVICE_OBJECT device, PIRP) {
      order.emplace_back("sender");
      devices.push_back(device);
      return STATUS_MORE_PROCESSING_REQUIRED;
    });
    EXPECT_EQ(request.Send(top.Device()), STATUS_SUCCESS);
    EXPECT_THAT(order, ElementsAre("middle", "top", "sender"));
    EXPECT_THAT(devices, ElementsAre(middle.Device(), top.Device(), nullptr));
    request.Free();
  });
}

TEST_P(Irp, ARoutineThatWantsMoreProcessingStopsTheWalkUntilItsDriverCompletesAgain) {
  InWorld([] {
    int invoked = 0;
    TestDriver lower(Answer(STATUS_UNSUCCESSFUL));
    Completion keep{[&](PDEVICE_OBJECT, PIRP) {
      ++invoked;
      return STATUS_MORE_PROCESSING_REQUIRED;
    }};
    Request request(2);
    TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      IoSetCompletionRoutine(irp, Completion::Run, &keep, TRUE, TRUE, TRUE);
      EXPECT_EQ(IoCallDriver(lower.Device(), irp), STATUS_UNSUCCESSFUL);
      EXPECT_EQ(request.Completions, 0);
      EXPECT_EQ(irp->CurrentLocation, 2);
      return Complete(irp, STATUS_SUCCESS);
    });
    EXPECT_EQ(request.Send(upper.Device()), STATUS_SUCCESS);
    EXPECT_EQ(invoked, 1);
    EXPECT_EQ(request.Completions, 1);
    request.Free();
  });
}

TEST_P(Irp, PendingIsPassedUpThroughADriverWithoutACompletionRoutine) {
  InWorld([] {
    PIRP kept = nullptr;
    TestDriver lower([&](PDEVICE_OBJECT device, PIRP irp) {
      kept = irp;
      return Pend(device, irp);
    });
    TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      return IoCallDriver(lower.Device(), irp);
    });
    BOOLEAN pendingReturned = FALSE;
    Request request(2, [&](PDEVICE_OBJECT, PIRP irp) {
      pendingReturned = irp->PendingReturned;
      return STATUS_MORE_PROCESSING_REQUIRED;
    });
    EXPECT_EQ(request.Send(upper.Device()), STATUS_PENDING);
    EXPECT_EQ(request.Completions, 0);
    Complete(kept, STATUS_SUCCESS);
    EXPECT_EQ(request.Completions, 1);
    EXPECT_EQ(pendingReturned, TRUE);
    request.Free();
  });
}

TEST_P(Irp, ARoutineThatGoesOnMarksPendingItself) {
  InWorld([] {
    PIRP kept = nullptr;
    TestDriver lower([&](PDEVICE_OBJECT device, PIRP irp) {
      kept = irp;
      return Pend(device, irp);
    });
    Completion goOn{[](PDEVICE_OBJECT, PIRP irp) {
      if (irp->PendingReturned != FALSE) IoMarkIrpPending(irp);
      return STATUS_CONTINUE_COMPLETION;
    }};
    TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      IoSetCompletionRoutine(irp, Completion::Run, &goOn, TRUE, TRUE, TRUE);
      return IoCallDriver(lower.Device(), irp);
    });
    Request request(2);
    EXPECT_EQ(request.Send(upper.Device()), STATUS_PENDING);
    Complete(kept, STATUS_SUCCESS);
    EXPECT_EQ(request.Completions, 1);
    request.Free();
  });
}

TEST_P(Irp, ADriverThatSkipsItsLocationLendsItToTheNext) {
  InWorld([] {
    PIRP kept = nullptr;
    TestDriver lower([&](PDEVICE_OBJECT device, PIRP irp) {
      EXPECT_EQ(irp->CurrentLocation, 1);
      kept = irp;
      return Pend(device, irp);
    });
    TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
      IoSkipCurrentIrpStackLocation(irp);
      return IoCallDriver(lower.Device(), irp);
    });
    Request request(1);
    EXPECT_EQ(request.Send(upper.Device()), STATUS_PENDING);
    Complete(kept, STATUS_SUCCESS);
    EXPECT_EQ(request.Completions, 1);
    request.Free();
  });
}

TEST_P(Irp, IsSentAgainFromItsCompletionRoutine) {
  InWorld([] {
    int dispatched = 0;
    TestDriver driver([&](PDEVICE_OBJECT, PIRP irp) {
      ++dispatched;
      IoMarkIrpPending(irp);
      Complete(irp, STATUS_SUCCESS);
      return STATUS_PENDING;
    });
    Request* again = nullptr;
    Request request(1, [&](PDEVICE_OBJECT, PIRP) {
      if (again->Completions == 5) return STATUS_MORE_PROCESSING_REQUIRED;
      EXPECT_EQ(again->Send(driver.Device()), STATUS_PENDING);
      return STATUS_MORE_PROCESSING_REQUIRED;
    });
    again = &request;
    EXPECT_EQ(request.Send(driver.Device()), STATUS_PENDING);
    EXPECT_EQ(dispatched, 5);
    request.Free();
  });
}

TEST_P(Irp, ACompletedLocationKeepsNeitherParametersNorControl) {
  InWorld([] {
    TestDriver driver(Answer(STATUS_SUCCESS));
    Request request;
    IoGetNextIrpStackLocation(request.Irp())->Parameters.Others.Argument1 = &driver;
    request.Send(driver.Device());
    const IO_STACK_LOCATION& location = *IoGetNextIrpStackLocation(request.Irp());
    EXPECT_EQ(location.Parameters.Others.Argument1, nullptr);
    EXPECT_EQ(location.Control, 0);
    request.Free();
  });
}

TEST_P(Irp, ReuseMakesItFreshAndGivesItAStatus) {
  InWorld([] {
    TestDriver driver(Answer(STATUS_SUCCESS));
    Request request;
    request.Send(driver.Device());
    request->Cancel = TRUE;
    IoReuseIrp(request.Irp(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(request->Cancel, FALSE);
    EXPECT_EQ(request->IoStatus.Status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(request->CurrentLocation, 2);
    EXPECT_EQ(request.Send(driver.Device()), STATUS_SUCCESS);
    request.Free();
  });
}

TEST_P(Irp, IsInitialisedInMemoryOfTheDrivers) {
  InWorld([] {
    const USHORT size = IoSizeOfIrp(1);
    const PVOID memory = ExAllocatePoolWithTag(NonPagedPool, size, 0x74736554);
    auto* const irp = static_cast<PIRP>(memory);
    IoInitializeIrp(irp, size, 1);
    TestDriver driver(Answer(STATUS_SUCCESS));
    Completion keep{[](PDEVICE_OBJECT, PIRP) { return STATUS_MORE_PROCESSING_REQUIRED; }};
    IoGetNextIrpStackLocation(irp)->MajorFunction = kMajor;
    IoSetCompletionRoutine(irp, Completion::Run, &keep, TRUE, TRUE, TRUE);
    EXPECT_EQ(IoCallDriver(driver.Device(), irp), STATUS_SUCCESS);
    ExFreePool(memory);
    EXPECT_EQ(IrpUsageOfWorld().Known, 0U);
  });
}

// A driver with a cancel routine: the request is completed by the thread that removes the routine.
class CancelableDriver {
 public:
  CancelableDriver()
      : Driver([this](PDEVICE_OBJECT, PIRP irp) {
          IoMarkIrpPending(irp);
          Kept = irp;
          IoSetCancelRoutine(irp, Cancel);
          return STATUS_PENDING;
        }) {}

  // The other side of the race.
  void Finish() {
    if (IoSetCancelRoutine(Kept, nullptr) != nullptr) Complete(Kept, STATUS_SUCCESS);
  }

  TestDriver Driver;
  PIRP Kept = nullptr;

 private:
  static void NTAPI Cancel(PDEVICE_OBJECT, PIRP irp) {
    EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
    EXPECT_EQ(irp->Cancel, TRUE);
    IoReleaseCancelSpinLock(irp->CancelIrql);
    Complete(irp, STATUS_CANCELLED);
  }
};

TEST_P(Irp, CancelRunsTheCancelRoutineOnceUnderItsLock) {
  InWorld([] {
    CancelableDriver driver;
    Request request;
    EXPECT_EQ(request.Send(driver.Driver.Device()), STATUS_PENDING);
    EXPECT_EQ(IoCancelIrp(request.Irp()), TRUE);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
    EXPECT_EQ(request.Completions, 1);
    EXPECT_EQ(request->IoStatus.Status, STATUS_CANCELLED);
    EXPECT_EQ(IoCancelIrp(request.Irp()), FALSE);
    EXPECT_EQ(request->Cancel, TRUE);
    request.Free();
  });
}

TEST_P(Irp, CancelWithoutARoutineOnlyLeavesItsMark) {
  InWorld([] {
    PIRP kept = nullptr;
    TestDriver driver([&](PDEVICE_OBJECT device, PIRP irp) {
      kept = irp;
      return Pend(device, irp);
    });
    Request request;
    request.Send(driver.Device());
    EXPECT_EQ(IoCancelIrp(request.Irp()), FALSE);
    EXPECT_EQ(kept->Cancel, TRUE);
    EXPECT_EQ(request.Completions, 0);
    Complete(kept, STATUS_CANCELLED);
    request.Free();
  });
}

TEST_P(Irp, CancelAndCompletionRaceAndOneOfThemWins) {
  bool wasCancelled = false;
  bool wasFinished = false;
  InWorld([&] {
    CancelableDriver driver;
    Request request;
    request.Send(driver.Driver.Device());
    TestThread finisher([&] { driver.Finish(); });
    IoCancelIrp(request.Irp());
    finisher.Join();
    EXPECT_EQ(request.Completions, 1);
    (request->IoStatus.Status == STATUS_CANCELLED ? wasCancelled : wasFinished) = true;
    request.Free();
  });
  if (GetParam()) {
    EXPECT_TRUE(wasCancelled);
    EXPECT_TRUE(wasFinished);
  }
}

// A completion at DISPATCH_LEVEL in one thread, while another waits for the request's end.
TEST_P(Irp, IsFreedByTheThreadThatItsCompletionWakes) {
  InWorld([] {
    PIRP kept = nullptr;
    KEVENT sent;
    KEVENT done;
    KeInitializeEvent(&sent, SynchronizationEvent, FALSE);
    KeInitializeEvent(&done, SynchronizationEvent, FALSE);
    TestDriver driver([&](PDEVICE_OBJECT, PIRP irp) {
      IoMarkIrpPending(irp);
      kept = irp;
      KeSetEvent(&sent, 0, FALSE);
      return STATUS_PENDING;
    });
    TestThread completer([&] {
      for (int i = 0; i < 20; ++i) {
        WaitForever(&sent);
        KIRQL level = 0;
        KeRaiseIrql(DISPATCH_LEVEL, &level);
        Complete(kept, STATUS_SUCCESS);
        KeLowerIrql(level);
      }
    });
    for (int i = 0; i < 20; ++i) {
      Request request(1, [&](PDEVICE_OBJECT, PIRP) {
        KeSetEvent(&done, 0, FALSE);
        return STATUS_MORE_PROCESSING_REQUIRED;
      });
      EXPECT_EQ(request.Send(driver.Device()), STATUS_PENDING);
      WaitForever(&done);
      request.Free();
    }
  });
}

// The driver in between returns STATUS_PENDING while its completion routine marks the request.
TEST_P(Irp, IsMarkedPendingByACompletionThatOvertakesTheDispatchRoutine) {
  InWorld([] {
    PIRP kept = nullptr;
    KEVENT sent;
    KEVENT done;
    KeInitializeEvent(&sent, SynchronizationEvent, FALSE);
    KeInitializeEvent(&done, SynchronizationEvent, FALSE);
    TestDriver lower([&](PDEVICE_OBJECT, PIRP irp) {
      IoMarkIrpPending(irp);
      kept = irp;
      KeSetEvent(&sent, 0, FALSE);
      return STATUS_PENDING;
    });
    Completion goOn{[](PDEVICE_OBJECT, PIRP irp) {
      if (irp->PendingReturned != FALSE) IoMarkIrpPending(irp);
      return STATUS_CONTINUE_COMPLETION;
    }};
    TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
      IoCopyCurrentIrpStackLocationToNext(irp);
      IoSetCompletionRoutine(irp, Completion::Run, &goOn, TRUE, TRUE, TRUE);
      return IoCallDriver(lower.Device(), irp);
    });
    TestThread completer([&] {
      for (int i = 0; i < 20; ++i) {
        WaitForever(&sent);
        Complete(kept, STATUS_SUCCESS);
      }
    });
    for (int i = 0; i < 20; ++i) {
      Request request(2, [&](PDEVICE_OBJECT, PIRP irp) {
        EXPECT_EQ(irp->PendingReturned, TRUE);
        KeSetEvent(&done, 0, FALSE);
        return STATUS_MORE_PROCESSING_REQUIRED;
      });
      EXPECT_EQ(request.Send(upper.Device()), STATUS_PENDING);
      WaitForever(&done);
      request.Free();
    }
  });
}

// A sender may keep a location of its own, above the driver's.
TEST_P(Irp, ASenderMayUseATopmostLocationOfItsOwn) {
  InWorld([] {
    TestDriver driver(Answer(STATUS_SUCCESS));
    Request request(2);
    for (int i = 0; i < 3; ++i) {
      IoSetNextIrpStackLocation(request.Irp());
      EXPECT_EQ(request.Send(driver.Device()), STATUS_SUCCESS);
      EXPECT_EQ(request->CurrentLocation, 2);
      IoSkipCurrentIrpStackLocation(request.Irp());
    }
    EXPECT_EQ(request.Completions, 3);
    request.Free();
  });
}

TEST_P(Irp, CountsThoseKnownAndThoseInFlight) {
  InWorld([] {
    PIRP kept = nullptr;
    TestDriver driver([&](PDEVICE_OBJECT device, PIRP irp) {
      kept = irp;
      return Pend(device, irp);
    });
    Request request;
    Request other;
    request.Send(driver.Device());
    EXPECT_EQ(IrpUsageOfWorld().Allocated, 2U);
    EXPECT_EQ(IrpUsageOfWorld().InFlight, 1U);
    EXPECT_EQ(IrpsInFlightAt(driver.Device()), 1U);
    Complete(kept, STATUS_SUCCESS);
    EXPECT_EQ(IrpUsageOfWorld().InFlight, 0U);
    request.Free();
    other.Free();
    EXPECT_EQ(IrpUsageOfWorld().Known, 0U);
  });
}

TEST_P(Irp, AllocationFailsOnDemandAndWithThePool) {
  InWorld([] {
    FailKernelCall("IoAllocateIrp", 2, STATUS_INSUFFICIENT_RESOURCES);
    const PIRP first = IoAllocateIrp(1, FALSE);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(IoAllocateIrp(1, FALSE), nullptr);
    FailPoolAllocation(1);
    EXPECT_EQ(IoAllocateIrp(1, FALSE), nullptr);
    const std::size_t nonPaged = PoolUsageOfAll().NonPagedBlocks;
    IoFreeIrp(first);
    EXPECT_EQ(PoolUsageOfAll().NonPagedBlocks, nonPaged - 1);
  });
}

TEST_P(Irp, DevicesAreMadeStackedAndDeleted) {
  InWorld([] {
    DRIVER_OBJECT driver;
    InitializeDriverObject(driver);
    PDEVICE_OBJECT lower = nullptr;
    PDEVICE_OBJECT upper = nullptr;
    EXPECT_EQ(IoCreateDevice(&driver, 8, nullptr, 0x22, 0x100, FALSE, &lower), STATUS_SUCCESS);
    EXPECT_EQ(IoCreateDevice(&driver, 0, nullptr, 0x22, 0, FALSE, &upper), STATUS_SUCCESS);
    EXPECT_EQ(*static_cast<ULONGLONG*>(lower->DeviceExtension), 0U);
    EXPECT_EQ(lower->Flags, 0x80U);
    EXPECT_EQ(lower->Characteristics, 0x100U);
    EXPECT_EQ(driver.DeviceObject, upper);
    EXPECT_EQ(upper->NextDevice, lower);
    EXPECT_EQ(IoAttachDeviceToDeviceStack(upper, lower), lower);
    EXPECT_EQ(lower->AttachedDevice, upper);
    EXPECT_EQ(upper->StackSize, 2);
    IoDetachDevice(lower);
    IoDeleteDevice(lower);
    EXPECT_EQ(upper->NextDevice, nullptr);
    IoDeleteDevice(upper);
    EXPECT_EQ(driver.DeviceObject, nullptr);
    FailKernelCall("IoCreateDevice", 1, STATUS_DELETE_PENDING);
    EXPECT_EQ(IoCreateDevice(&driver, 0, nullptr, 0x22, 0, FALSE, &upper), STATUS_DELETE_PENDING);
  });
}

}  // namespace
}  // namespace lidcam::host
