// Each misuse of a request that the kernel refuses, with its report.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/host/nt/verifier/no_allocation_scope.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::host {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

TestDriver::Dispatch Keep(PIRP& kept) {
  return [&kept](PDEVICE_OBJECT device, PIRP irp) {
    kept = irp;
    return Pend(device, irp);
  };
}

TEST(IrpVerifier, RefusesASecondCompletion) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  Complete(irp, STATUS_SUCCESS);
                  return Complete(irp, STATUS_SUCCESS);
                });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* is completed already"));
}

TEST(IrpVerifier, RefusesACompletionAfterTheCancelRoutineMadeOne) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  IoMarkIrpPending(irp);
                  IoSetCancelRoutine(irp, [](PDEVICE_OBJECT, PIRP cancelled) NTAPI {
                    IoReleaseCancelSpinLock(cancelled->CancelIrql);
                    Complete(cancelled, STATUS_CANCELLED);
                  });
                  return STATUS_PENDING;
                });
                Request request;
                request.Send(driver.Device());
                IoCancelIrp(request.Irp());
                Complete(request.Irp(), STATUS_SUCCESS);
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* is completed already"));
}

TEST(IrpVerifier, RefusesACompletionAfterTheFree) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request;
                request.Send(driver.Device());
                request.Free();
                IoCompleteRequest(request.Irp(), IO_NO_INCREMENT);
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* was freed"));
}

TEST(IrpVerifier, RefusesACompletionThatGoesOnAfterItsRoutineFreedTheRequest) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request(1, [](PDEVICE_OBJECT, PIRP irp) {
                  IoFreeIrp(irp);
                  return STATUS_CONTINUE_COMPLETION;
                });
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* was freed"));
}

TEST(IrpVerifier, RefusesACompletionThatGoesOnAfterItsRoutineSentTheRequestAgain) {
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver answering(Answer(STATUS_SUCCESS));
                TestDriver keeping(Keep(kept));
                Request* again = nullptr;
                Request request(1, [&](PDEVICE_OBJECT, PIRP) {
                  again->Send(keeping.Device());
                  return STATUS_CONTINUE_COMPLETION;
                });
                again = &request;
                request.Send(answering.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* goes on being completed after its "
                           "completion routine freed it or sent it again"));
}

TEST(IrpVerifier, RefusesACompletedRequestWithoutAnOwner) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request(1, [](PDEVICE_OBJECT, PIRP) { return STATUS_CONTINUE_COMPLETION; });
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* came to its end, and no completion "
                           "routine kept it"));
}

TEST(IrpVerifier, RefusesToFreeOneInFlight) {
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver driver(Keep(kept));
                Request request;
                request.Send(driver.Device());
                request.Free();
              }),
              MatchesRegex("IoFreeIrp: IRP 0x.* is in flight at device 0x.* and is freed"));
}

TEST(IrpVerifier, RefusesToFreeTwice) {
  EXPECT_THAT(ViolationOf([] {
                Request request;
                request.Free();
                request.Free();
              }),
              MatchesRegex("IoFreeIrp: IRP 0x.* was freed"));
}

TEST(IrpVerifier, RefusesToFreeAnAllocatedOneAsMemoryAndOthersMemoryAsARequest) {
  EXPECT_THAT(ViolationOf([] {
                Request request;
                ExFreePool(request.Irp());
              }),
              MatchesRegex("ExFreePool: IRP 0x.* is not to be freed as memory"));
  EXPECT_THAT(ViolationOf([] {
                const USHORT size = IoSizeOfIrp(1);
                auto* const irp =
                    static_cast<PIRP>(ExAllocatePoolWithTag(NonPagedPool, size, 0x74736554));
                IoInitializeIrp(irp, size, 1);
                IoFreeIrp(irp);
              }),
              MatchesRegex("IoFreeIrp: IRP 0x.* wasn't allocated by IoAllocateIrp"));
}

TEST(IrpVerifier, RefusesToFreeMemoryWithARequestInFlight) {
  EXPECT_THAT(ViolationOf([] {
                const USHORT size = IoSizeOfIrp(1);
                auto* const irp =
                    static_cast<PIRP>(ExAllocatePoolWithTag(NonPagedPool, size, 0x74736554));
                IoInitializeIrp(irp, size, 1);
                PIRP kept = nullptr;
                TestDriver driver(Keep(kept));
                IoGetNextIrpStackLocation(irp)->MajorFunction = kMajor;
                IoCallDriver(driver.Device(), irp);
                ExFreePool(irp);
              }),
              MatchesRegex("ExFreePool: IRP 0x.* is in flight at device 0x.* and its memory is "
                           "freed"));
}

TEST(IrpVerifier, RefusesToSendOneInFlightAgain) {
  for (const CCHAR locations : {CCHAR{1}, CCHAR{3}}) {
    EXPECT_THAT(ViolationOf([&] {
                  PIRP kept = nullptr;
                  TestDriver driver(Keep(kept));
                  Request request(locations);
                  request.Send(driver.Device());
                  IoGetNextIrpStackLocation(request.Irp());
                  IoCallDriver(driver.Device(), request.Irp());
                }),
                MatchesRegex("IofCallDriver: IRP 0x.* is in flight at device 0x.* and is sent "
                             "again"));
  }
}

TEST(IrpVerifier, RefusesToReuseOrInitialiseOneInFlight) {
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver driver(Keep(kept));
                Request request;
                request.Send(driver.Device());
                IoReuseIrp(request.Irp(), STATUS_SUCCESS);
              }),
              MatchesRegex("IoReuseIrp: IRP 0x.* is in flight at device 0x.*"));
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver driver(Keep(kept));
                Request request;
                request.Send(driver.Device());
                IoInitializeIrp(request.Irp(), IoSizeOfIrp(1), 1);
              }),
              MatchesRegex("IoInitializeIrp: IRP 0x.* is in flight at device 0x.* and is "
                           "initialised again"));
}

TEST(IrpVerifier, RefusesASendWithoutANextStackLocation) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request;
                request.Arm();
                IoSetNextIrpStackLocation(request.Irp());
                IoCallDriver(driver.Device(), request.Irp());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.* has no next stack location"));
}

TEST(IrpVerifier, RefusesAForwardBelowTheLastLocation) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver lower(Answer(STATUS_SUCCESS));
                TestDriver upper(
                    [&](PDEVICE_OBJECT, PIRP irp) { return IoCallDriver(lower.Device(), irp); });
                Request request(1);
                request.Send(upper.Device());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.* is in flight at device 0x.* and is sent "
                           "again"));
}

TEST(IrpVerifier, RefusesADeviceWithoutADriverAndAnUnknownFunction) {
  EXPECT_THAT(ViolationOf([] {
                HostDevice device;
                Request request;
                request.Send(&device);
              }),
              MatchesRegex("IofCallDriver: IRP 0x.* is sent to device 0x.*, which has no driver"));
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request;
                request.Arm();
                IoGetNextIrpStackLocation(request.Irp())->MajorFunction = 28;
                IoCallDriver(driver.Device(), request.Irp());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.* asks for major function 28, which device "
                           "0x.* has no routine for"));
}

TEST(IrpVerifier, RefusesACompletionWithStatusPending) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_PENDING));
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* is completed with STATUS_PENDING"));
}

TEST(IrpVerifier, RefusesPendingWithoutTheMark) {
  constexpr char kExpected[] =
      "Iof.*: IRP 0x.*: the dispatch routine of device 0x.* returned STATUS_PENDING without "
      "IoMarkIrpPending";
  // The request is kept pending.
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP) { return STATUS_PENDING; });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex(kExpected));
  // It is completed already.
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  Complete(irp, STATUS_SUCCESS);
                  return STATUS_PENDING;
                });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex(kExpected));
  // A completion routine in between forgets to pass the mark on.
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver lower(Keep(kept));
                Completion forget{[](PDEVICE_OBJECT, PIRP) { return STATUS_CONTINUE_COMPLETION; }};
                TestDriver upper([&](PDEVICE_OBJECT, PIRP irp) {
                  IoCopyCurrentIrpStackLocationToNext(irp);
                  IoSetCompletionRoutine(irp, Completion::Run, &forget, TRUE, TRUE, TRUE);
                  return IoCallDriver(lower.Device(), irp);
                });
                Request request(2);
                request.Send(upper.Device());
                Complete(kept, STATUS_SUCCESS);
              }),
              MatchesRegex(kExpected));
}

TEST(IrpVerifier, RefusesTheMarkWithoutPending) {
  constexpr char kExpected[] =
      "IofCallDriver: IRP 0x.*: the dispatch routine of device 0x.* returned 0x00000000 after "
      "IoMarkIrpPending";
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  IoMarkIrpPending(irp);
                  return STATUS_SUCCESS;
                });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex(kExpected));
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  IoMarkIrpPending(irp);
                  return Complete(irp, STATUS_SUCCESS);
                });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex(kExpected));
}

TEST(IrpVerifier, RefusesADispatchRoutineThatReturnsWithoutAnEnd) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP) { return STATUS_SUCCESS; });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.*: the dispatch routine of device 0x.* returned "
                           "0x00000000 and has not completed the request"));
}

TEST(IrpVerifier, RefusesACancelRoutineThatIsStillSet) {
  const auto setting = [](bool isCompleted) {
    return [isCompleted](PDEVICE_OBJECT, PIRP irp) {
      IoMarkIrpPending(irp);
      IoSetCancelRoutine(irp, [](PDEVICE_OBJECT, PIRP) NTAPI {});
      if (isCompleted) Complete(irp, STATUS_SUCCESS);
      return STATUS_PENDING;
    };
  };
  EXPECT_THAT(ViolationOf([&] {
                TestDriver driver(setting(true));
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.* is completed while its cancel routine is "
                           "set"));
  EXPECT_THAT(ViolationOf([&] {
                TestDriver lower(Answer(STATUS_SUCCESS));
                TestDriver upper(setting(false));
                Request request(2);
                request.Send(upper.Device());
                IoGetNextIrpStackLocation(request.Irp())->MajorFunction = kMajor;
                IoCallDriver(lower.Device(), request.Irp());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.* is sent while its cancel routine is set"));
}

TEST(IrpVerifier, RefusesACancelRoutineThatKeepsTheLockOrTheLevel) {
  const auto violationWith = [](PDRIVER_CANCEL cancel) {
    return ViolationOf([&] {
      TestDriver driver([&](PDEVICE_OBJECT, PIRP irp) {
        IoMarkIrpPending(irp);
        IoSetCancelRoutine(irp, cancel);
        return STATUS_PENDING;
      });
      Request request;
      request.Send(driver.Device());
      IoCancelIrp(request.Irp());
    });
  };
  EXPECT_THAT(violationWith([](PDEVICE_OBJECT, PIRP) NTAPI {}),
              MatchesRegex("IoCancelIrp: IRP 0x.*: the cancel routine returned with the cancel "
                           "spin lock held"));
  EXPECT_THAT(
      violationWith([](PDEVICE_OBJECT, PIRP) NTAPI { IoReleaseCancelSpinLock(DISPATCH_LEVEL); }),
      MatchesRegex("IoCancelIrp: IRP 0x.*: the cancel routine returned at level 2 instead "
                   "of 0"));
}

TEST(IrpVerifier, RefusesACancelRoutineWithoutAnOwner) {
  EXPECT_THAT(ViolationOf([] {
                Request request;
                IoSetCancelRoutine(request.Irp(), [](PDEVICE_OBJECT, PIRP) NTAPI {});
                IoCancelIrp(request.Irp());
              }),
              MatchesRegex("IoCancelIrp: IRP 0x.* has a cancel routine and no driver that could "
                           "have set it"));
}

TEST(IrpVerifier, RefusesToCancelOneThatWasFreed) {
  EXPECT_THAT(ViolationOf([] {
                Request request;
                request.Free();
                IoCancelIrp(request.Irp());
              }),
              MatchesRegex("IoCancelIrp: IRP 0x.* was freed"));
}

TEST(IrpVerifier, RefusesACompletionAboveDispatchLevel) {
  EXPECT_EQ(ViolationOf([] {
              TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                KIRQL level = 0;
                KeRaiseIrql(3, &level);
                return Complete(irp, STATUS_SUCCESS);
              });
              Request request;
              request.Send(driver.Device());
            }),
            "IofCompleteRequest: called at level 3, allowed are 0 to 2");
}

TEST(IrpVerifier, RefusesRoutinesThatReturnAtAnotherLevel) {
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver([](PDEVICE_OBJECT, PIRP irp) {
                  KIRQL level = 0;
                  KeRaiseIrql(DISPATCH_LEVEL, &level);
                  return Complete(irp, STATUS_SUCCESS);
                });
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCallDriver: IRP 0x.*: the dispatch routine, called at level 0, "
                           "returned at level 2"));
  EXPECT_THAT(ViolationOf([] {
                TestDriver driver(Answer(STATUS_SUCCESS));
                Request request(1, [](PDEVICE_OBJECT, PIRP) {
                  KIRQL level = 0;
                  KeRaiseIrql(DISPATCH_LEVEL, &level);
                  return STATUS_MORE_PROCESSING_REQUIRED;
                });
                request.Send(driver.Device());
              }),
              MatchesRegex("IofCompleteRequest: IRP 0x.*: the completion routine, called at level "
                           "0, returned at level 2"));
}

TEST(IrpVerifier, FindsARequestThatWasNotFreed) {
  EXPECT_THAT(ViolationOf([] { Request request; }),
              MatchesRegex("end of the simulation: IRP 0x.* was never freed"));
  EXPECT_THAT(ViolationOf([] {
                PIRP kept = nullptr;
                TestDriver driver(Keep(kept));
                Request request;
                request.Send(driver.Device());
              }),
              MatchesRegex("end of the simulation: IRP 0x.* .in flight at device 0x.*. was never "
                           "freed"));
}

TEST(IrpVerifier, RefusesARequestOfAnotherWorldAndAnUnknownOne) {
  Request request;
  EXPECT_THAT(ViolationOf([&] { IoReuseIrp(request.Irp(), STATUS_SUCCESS); }),
              MatchesRegex("IoReuseIrp: IRP 0x.* belongs to another world"));
  request.Free();
  EXPECT_THAT(ViolationOf([] {
                IRP irp{};
                IoCancelIrp(&irp);
              }),
              MatchesRegex("IoCancelIrp: IRP 0x.* was never initialised"));
}

TEST(IrpVerifier, RefusesWrongNumbersOfLocationsAndBytes) {
  EXPECT_EQ(ViolationOf([] { IoAllocateIrp(0, FALSE); }), "IoAllocateIrp: 0 stack locations");
  EXPECT_EQ(ViolationOf([] {
              IRP irp;
              IoInitializeIrp(&irp, sizeof(irp), 1);
            }),
            "IoInitializeIrp: " + std::to_string(sizeof(IRP)) + " bytes for 1 stack locations");
}

TEST(IrpVerifier, RefusesToDeleteADeviceInUse) {
  const auto create = [](DRIVER_OBJECT& driver) {
    PDEVICE_OBJECT device = nullptr;
    IoCreateDevice(&driver, 0, nullptr, 0x22, 0, FALSE, &device);
    return device;
  };
  PDEVICE_OBJECT lower = nullptr;
  PDEVICE_OBJECT upper = nullptr;
  DRIVER_OBJECT driver;
  InitializeDriverObject(driver);
  EXPECT_THAT(ViolationOf([&] {
                lower = create(driver);
                upper = create(driver);
                IoAttachDeviceToDeviceStack(upper, lower);
                IoDeleteDevice(lower);
              }),
              MatchesRegex("IoDeleteDevice: device 0x.* still has device 0x.* attached to it"));
  IoDetachDevice(lower);
  IoDeleteDevice(lower);
  driver.MajorFunction[kMajor] = Pend;
  EXPECT_THAT(ViolationOf([&] {
                Request request;
                request.Send(upper);
                IoDeleteDevice(upper);
              }),
              MatchesRegex("IoDeleteDevice: device 0x.* still has 1 IRP.s."));
  IoDeleteDevice(upper);
  EXPECT_THAT(ViolationOf([] {
                HostDevice device;
                IoDetachDevice(&device);
              }),
              MatchesRegex("IoDetachDevice: device 0x.* has nothing attached to it"));
}

TEST(IrpVerifier, ReportsWhatHappenedToTheRequest) {
  const VerifierCapture capture;
  TestDriver driver(Answer(STATUS_SUCCESS));
  Request request;
  const std::string what = capture.Of([&] {
    request.Send(driver.Device());
    request.Free();
    request.Free();
  });
  EXPECT_THAT(what, HasSubstr("was freed"));
  ASSERT_EQ(capture.Violations().size(), 1U);
  EXPECT_THAT(capture.Violations().front().Report,
              MatchesRegex("IoFreeIrp: IRP 0x(.|\n)*what happened to IRP 0x[0-9a-f]+:\n"
                           ".*IoAllocateIrp.*\n.*sent to device 0x.*\n.*IofCompleteRequest 0x.*\n"
                           ".*completion routine's context 0x.*\n.*IoFreeIrp.*\n(.|\n)*"
                           "last kernel calls:(.|\n)*"));
}

TEST(NoAllocation, RefusesToAllocateOrToWaitInItsScope) {
  struct Row {
    const char* Expected;
    std::function<void()> Call;
  };
  KEVENT event;
  const Row rows[] = {
      {"ExAllocatePoolWithTag: allocates", [] { ExAllocatePoolWithTag(NonPagedPool, 8, 1); }},
      {"ExAllocatePoolWithTag: allocates", [] { ExAllocatePoolWithTag(PagedPool, 8, 1); }},
      {"IoAllocateIrp: allocates", [] { IoAllocateIrp(1, FALSE); }},
      {"IoAllocateWorkItem: allocates", [] { IoAllocateWorkItem(nullptr); }},
      {"KeWaitForSingleObject: waits", [&] { WaitFor(&event, -1); }},
      {"KeWaitForSingleObject: waits", [&] { WaitForever(&event); }},
      {"KeDelayExecutionThread: waits", [] { Sleep(1); }},
      {"ZwClose: waits", [] { ZwClose(nullptr); }},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ViolationOf([&] {
                KeInitializeEvent(&event, NotificationEvent, TRUE);
                const NoAllocationScope scope("the packet path");
                row.Call();
              }),
              std::string(row.Expected) + " on a path that must not: the packet path");
  }
}

TEST(NoAllocation, AllowsLocksSignalsAndWaitsThatCannotBlock) {
  EXPECT_EQ(ViolationOf([] {
              KEVENT event;
              KSPIN_LOCK lock;
              KIRQL level = 0;
              KeInitializeEvent(&event, SynchronizationEvent, FALSE);
              KeInitializeSpinLock(&lock);
              {
                const NoAllocationScope scope("the packet path");
                KeAcquireSpinLock(&lock, &level);
                KeSetEvent(&event, 0, FALSE);
                KeReleaseSpinLock(&lock, level);
                WaitFor(&event, 0);
                const NoAllocationScope inner("a part of it");
              }
              ExFreePool(ExAllocatePoolWithTag(NonPagedPool, 8, 1));
            }),
            "");
}

TEST(NoAllocation, HoldsForTheThreadOfTheScopeOnly) {
  EXPECT_EQ(ViolationOf([] {
              bool isOver = false;
              TestThread other([&] {
                while (!isOver) ExFreePool(ExAllocatePoolWithTag(NonPagedPool, 8, 1));
              });
              {
                const NoAllocationScope scope("the packet path");
                for (int i = 0; i < 100; ++i) YieldProcessor();
              }
              isOver = true;
            }),
            "");
}

TEST(NoAllocation, HoldsForAllCompletionRoutinesOnDemand) {
  const auto complete = [] {
    TestDriver driver(Answer(STATUS_SUCCESS));
    Request request(1, [](PDEVICE_OBJECT, PIRP) {
      ExFreePool(ExAllocatePoolWithTag(NonPagedPool, 8, 1));
      return STATUS_MORE_PROCESSING_REQUIRED;
    });
    request.Send(driver.Device());
    request.Free();
  };
  EXPECT_EQ(ViolationOf(complete), "");
  const NoAllocationInCompletions ban;
  EXPECT_EQ(ViolationOf(complete),
            "ExAllocatePoolWithTag: allocates on a path that must not: a completion routine");
}

}  // namespace
}  // namespace lidcam::host
