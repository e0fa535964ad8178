// The order in which a tick ends the waits, and the queue of the recovery.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/driver/usb/support/circle.h"
#include "tests/driver/usb/support/kernel_arguments.h"

namespace lidcam::test {
namespace {

using host::Simulate;
using testing::ElementsAre;

TEST(WatchdogOrder, TheRecoverysWaitEndsBeforeTheStops) {
  Simulate({}, [] {
    Circle circle(1);
    KeInitializeEvent(&circle.Stream.ResetEvent, SynchronizationEvent, FALSE);
    KeInitializeEvent(&circle.Stream.StopEvent, SynchronizationEvent, FALSE);
    circle.Stream.StreamRunning = 1;
    circle.Stream.WaitFlags = 3;
    const KernelArguments arguments;
    circle.Tick();
    using Set = KernelArguments::EventSet;
    EXPECT_THAT(arguments.EventSets, ElementsAre(Set{&circle.Stream.ResetEvent, 1, FALSE},
                                                 Set{&circle.Stream.StopEvent, 1, FALSE}));
    EXPECT_THAT(circle.Lines, ElementsAre("watchdog reset idle", "watchdog stop idle"));
    EXPECT_EQ(circle.Stream.WaitFlags, 0U);
    circle.Stream.StreamRunning = 0;
  });
}

// A waiter may read the flags as soon as it wakes: they must have changed by then.
TEST(WatchdogOrder, AWaitEndsWithItsFlagsChanged) {
  Simulate({}, [] {
    Circle circle(1);
    KeInitializeEvent(&circle.Stream.ResetEvent, SynchronizationEvent, FALSE);
    KeInitializeEvent(&circle.Stream.StopEvent, SynchronizationEvent, FALSE);
    circle.Stream.StreamRunning = 1;
    circle.Stream.Halted = 1;
    circle.Stream.WaitFlags = 3;
    std::vector<std::string> flags;
    KernelArguments arguments;
    arguments.OnEventSet = [&](PRKEVENT) { flags.push_back(circle.Flags()); };
    circle.Tick();
    EXPECT_THAT(flags, ElementsAre("running wait=1", "running wait=0"));
    circle.Stream.StreamRunning = 0;
  });
}

TEST(WatchdogOrder, ARecoveryOnAPipeThatTheInterfaceLacksAbortsNothing) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Stream.Opened = 1;
    circle.Stream.PipeIndex = 2;
    EXPECT_EQ(RecoverStream(circle.Device, circle.Stream, nullptr, nullptr),
              static_cast<NTSTATUS>(0xC000009C));
    EXPECT_THAT(circle.Lines,
                ElementsAre("recovery abort status=C000009C", "recovery ends status=C000009C"));
    circle.Stream.Opened = 0;
  });
}

// The driver's threads can't be alerted, and all of them wait in kernel mode.
TEST(Waits, OfARecoveryAndAStopAreForTheKernelAndNotAlertable) {
  Simulate({}, [] {
    Circle circle(2);
    const KernelArguments arguments;
    circle.Run();
    circle.CompleteTransfer(0, USBD_STATUS_XACT_ERROR);
    host::Sleep(600 * host::kMillisecond);
    circle.Pause();
    circle.Release();
    for (void* const object :
         {static_cast<void*>(&circle.Stream.ResetEvent),
          static_cast<void*>(&circle.Stream.StopEvent), static_cast<void*>(&circle.Device.UrbLock),
          static_cast<void*>(&circle.Pipeline->WakeSemaphore),
          static_cast<void*>(&circle.Pipeline->DoneSemaphore)}) {
      EXPECT_TRUE(std::any_of(arguments.Waits.begin(), arguments.Waits.end(),
                              [object](const auto& wait) { return wait.Object == object; }));
    }
    EXPECT_GT(arguments.Waits.size(), 10U);
    for (const KernelArguments::Wait& wait : arguments.Waits) {
      EXPECT_EQ(wait.Reason, 0);
      EXPECT_EQ(wait.Mode, 0);
      EXPECT_EQ(wait.Alertable, 0);
    }
  });
}

// Drains the stream in vain, and sets the limit of the next drain meanwhile.
// @return how long it took
LONGLONG DrainInVain(Circle& circle, LONGLONG nextLimit) {
  const KernelArguments arguments;
  const LONGLONG begin = host::Now();
  host::TestThread stop([&circle] { EXPECT_EQ(DrainTransfers(circle.Stream), STATUS_TIMEOUT); });
  host::Sleep(host::kMillisecond);
  for (const KernelArguments::Wait& wait : arguments.Waits) {
    if (wait.Object == &circle.Stream.StopEvent) wait.Timeout->QuadPart = -nextLimit;
  }
  stop.Join();
  return host::Now() - begin;
}

TEST(Waits, OfAStopHaveALimitThatADebuggerCanChange) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.AbortBringsHome = false;
    EXPECT_EQ(DrainInVain(circle, 110'000'000), 80'000'000);
    EXPECT_EQ(DrainInVain(circle, 80'000'000), 110'000'000);
    circle.Stream.StreamRunning = 0;
    circle.CompleteAllTransfers();
  });
}

TEST(ScheduleStreamReset, QueuesOneCriticalItemOfTheNextDevice) {
  Simulate({}, [] {
    Circle circle(1);
    DEVICE_OBJECT functional{};
    DEVICE_OBJECT physical{};
    circle.KsDevice.FunctionalDeviceObject = &functional;
    circle.KsDevice.PhysicalDeviceObject = &physical;
    const KernelArguments arguments;
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 1);
    EXPECT_THAT(arguments.WorkItemDevices, ElementsAre(circle.KsDevice.NextDeviceObject));
    EXPECT_THAT(arguments.WorkItemQueues, ElementsAre(CriticalWorkQueue));
    EXPECT_EQ(static_cast<int>(arguments.WorkItemQueues[0]), 0);
    WaitForRecovery(circle.Device);
  });
}

}  // namespace
}  // namespace lidcam::test
