// The order in which a tick ends the waits, and where the recovery is queued.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
