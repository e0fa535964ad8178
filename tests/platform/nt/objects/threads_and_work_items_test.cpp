// System threads, their objects and handles, and work items.

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/platform/nt/objects/terminating_thread.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

TEST(SimulatedThread, EndsItselfOutOfCodeWithoutExceptions) {
  UnderManySeeds([] {
    TerminatingThread thread;
    KeInitializeEvent(&thread.Ending, NotificationEvent, FALSE);
    HANDLE handle = nullptr;
    ASSERT_EQ(
        PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, RunTerminatingThread, &thread),
        STATUS_SUCCESS);
    PVOID object = nullptr;
    ASSERT_EQ(
        ObReferenceObjectByHandle(handle, THREAD_ALL_ACCESS, nullptr, KernelMode, &object, nullptr),
        STATUS_SUCCESS);
    EXPECT_EQ(ZwClose(handle), STATUS_SUCCESS);
    EXPECT_EQ(WaitForever(object), STATUS_SUCCESS);
    EXPECT_EQ(KeReadStateEvent(&thread.Ending), 1);
    EXPECT_EQ(WaitFor(object, 0), STATUS_SUCCESS);  // an ended thread stays signalled
    ObDereferenceObject(object);
  });
}

TEST(SimulatedThread, IsNotSignalledWhileItRuns) {
  UnderManySeeds([] {
    TestThread thread([] { Sleep(100); });
    EXPECT_EQ(WaitFor(thread.Object(), -99), STATUS_TIMEOUT);
    EXPECT_EQ(WaitFor(thread.Object(), -2), STATUS_SUCCESS);
  });
}

TEST(SimulatedThread, KnowsItselfAndItsPriority) {
  Simulate({}, [] {
    PKTHREAD inside = nullptr;
    KPRIORITY first = 0;
    KPRIORITY second = 0;
    TestThread thread([&] {
      inside = KeGetCurrentThread();
      first = KeSetPriorityThread(inside, LOW_REALTIME_PRIORITY);
      second = KeSetPriorityThread(inside, 8);
    });
    WaitForever(thread.Object());
    EXPECT_EQ(inside, thread.Object());
    EXPECT_NE(inside, KeGetCurrentThread());
    EXPECT_EQ(first, 8);
    EXPECT_EQ(second, 16);
  });
}

TEST(SimulatedThread, OutlivesItsHandleAndGoesWithItsLastReference) {
  const std::size_t handles = OpenHandleCount();
  Simulate({}, [] {
    bool isDone = false;
    {
      TestThread thread([&] { isDone = true; });
    }
    EXPECT_TRUE(isDone);
  });
  EXPECT_EQ(OpenHandleCount(), handles);
}

TEST(SimulatedThread, HasAHandleOfItsOwnKind) {
  Simulate({}, [] {
    PVOID object = nullptr;
    EXPECT_EQ(ObReferenceObjectByHandle(nullptr, 0, nullptr, KernelMode, &object, nullptr),
              STATUS_INVALID_HANDLE);
    const HANDLE other = OpenHandle(std::make_shared<HandleObject>());
    EXPECT_EQ(ObReferenceObjectByHandle(other, 0, nullptr, KernelMode, &object, nullptr),
              STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(object, nullptr);
    ZwClose(other);
  });
}

// A work item whose routine frees it, as a recovery does.
struct Work {
  static void NTAPI Run(PDEVICE_OBJECT device, PVOID context) {
    auto& self = *static_cast<Work*>(context);
    self.Level = KeGetCurrentIrql();
    self.Device = device;
    Sleep(10);
    ++self.Runs;
    if (self.FreesItself) IoFreeWorkItem(self.Item);
    KeSetEvent(&self.Done, 0, FALSE);
  }

  Work() { KeInitializeEvent(&Done, SynchronizationEvent, FALSE); }

  PIO_WORKITEM Item = nullptr;
  PDEVICE_OBJECT Device = nullptr;
  KEVENT Done;
  KIRQL Level = HIGH_LEVEL;
  int Runs = 0;
  bool FreesItself = false;
};

TEST(SimulatedWorkItem, RunsOnceAtPassiveLevelWithItsDevice) {
  UnderManySeeds([] {
    HostDevice device;
    Work work;
    work.FreesItself = true;
    work.Item = IoAllocateWorkItem(&device);
    KIRQL before = 0;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    IoQueueWorkItem(work.Item, Work::Run, CriticalWorkQueue, &work);
    KeLowerIrql(before);
    WaitForever(&work.Done);
    EXPECT_EQ(work.Level, PASSIVE_LEVEL);
    EXPECT_EQ(work.Device, &device);
    EXPECT_EQ(work.Runs, 1);
  });
}

TEST(SimulatedWorkItem, CanBeQueuedAgainOnceItRuns) {
  UnderManySeeds([] {
    Work work;
    work.Item = IoAllocateWorkItem(nullptr);
    for (int i = 0; i < 3; ++i) {
      IoQueueWorkItem(work.Item, Work::Run, DelayedWorkQueue, &work);
      WaitForever(&work.Done);
    }
    EXPECT_EQ(work.Runs, 3);
    IoFreeWorkItem(work.Item);
  });
}

TEST(SimulatedWorkItem, OfTheOldKindRunsFromTheCallersMemory) {
  UnderManySeeds([] {
    struct Old {
      WORK_QUEUE_ITEM Item;
      KEVENT Done;
    } old;
    KeInitializeEvent(&old.Done, NotificationEvent, FALSE);
    ExInitializeWorkItem(
        &old.Item,
        [](PVOID parameter) NTAPI {
          EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
          KeSetEvent(&static_cast<Old*>(parameter)->Done, 0, FALSE);
        },
        &old);
    ExQueueWorkItem(&old.Item, DelayedWorkQueue);
    WaitForever(&old.Done);
  });
}

// An item that blocks mustn't delay the next.
TEST(SimulatedWorkItem, RunsBesideOneThatWaits) {
  UnderManySeeds([] {
    struct Blocking {
      KEVENT Release;
      KEVENT Ended;
    } blocking;
    KeInitializeEvent(&blocking.Release, NotificationEvent, FALSE);
    KeInitializeEvent(&blocking.Ended, NotificationEvent, FALSE);
    const PIO_WORKITEM waiter = IoAllocateWorkItem(nullptr);
    const auto wait = [](PDEVICE_OBJECT, PVOID context) NTAPI {
      WaitForever(&static_cast<Blocking*>(context)->Release);
      KeSetEvent(&static_cast<Blocking*>(context)->Ended, 0, FALSE);
    };
    IoQueueWorkItem(waiter, wait, CriticalWorkQueue, &blocking);
    Work work;
    work.Item = IoAllocateWorkItem(nullptr);
    IoQueueWorkItem(work.Item, Work::Run, CriticalWorkQueue, &work);
    WaitForever(&work.Done);
    KeSetEvent(&blocking.Release, 0, FALSE);
    WaitForever(&blocking.Ended);
    IoFreeWorkItem(waiter);
    IoFreeWorkItem(work.Item);
  });
}

TEST(KernelFault, FailsTheThreadCreationThatTheCountdownNames) {
  Simulate({}, [] {
    FailKernelCall("PsCreateSystemThread", 2, STATUS_INSUFFICIENT_RESOURCES);
    {
      TestThread first([] {});
      HANDLE handle = nullptr;
      EXPECT_EQ(PsCreateSystemThread(
                    &handle, 0, nullptr, nullptr, nullptr, [](PVOID) NTAPI {}, nullptr),
                STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_EQ(handle, nullptr);
      TestThread third([] {});
    }
    ClearKernelCallFaults();
  });
}

TEST(KernelFault, FailsEachCallThatHasAFaultPoint) {
  FailKernelCall("IoAllocateWorkItem", 1, STATUS_UNSUCCESSFUL);
  EXPECT_EQ(IoAllocateWorkItem(nullptr), nullptr);
  FailKernelCall("KeSaveFloatingPointState", 1, STATUS_UNSUCCESSFUL);
  KFLOATING_SAVE state;
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_UNSUCCESSFUL);
  EXPECT_EQ(KeSaveFloatingPointState(&state), STATUS_SUCCESS);
  KeRestoreFloatingPointState(&state);
  FailKernelCall("ObReferenceObjectByHandle", 1, STATUS_ACCESS_DENIED);
  PVOID object = nullptr;
  EXPECT_EQ(ObReferenceObjectByHandle(nullptr, 0, nullptr, KernelMode, &object, nullptr),
            STATUS_ACCESS_DENIED);
  IO_STATUS_BLOCK io{};
  FailKernelCall("ZwWriteFile", 1, STATUS_DISK_FULL);
  EXPECT_EQ(ZwWriteFile(nullptr, nullptr, nullptr, nullptr, &io, nullptr, 0, nullptr, nullptr),
            STATUS_DISK_FULL);
  FailKernelCall("ZwCreateFile", 1, STATUS_DISK_FULL);
  OBJECT_ATTRIBUTES attributes{};
  HANDLE file = nullptr;
  EXPECT_EQ(ZwCreateFile(&file, 0, &attributes, &io, nullptr, 0, 0, 0, 0, nullptr, 0),
            STATUS_DISK_FULL);
}

TEST(KernelFault, OfACallThatHasNoneIsAViolation) {
  const VerifierCapture capture;
  EXPECT_EQ(capture.Of([] { FailKernelCall("KeSetEvent", 1, STATUS_UNSUCCESSFUL); }),
            "FailKernelCall: KeSetEvent has no fault point");
}

}  // namespace
}  // namespace lidcam::host
