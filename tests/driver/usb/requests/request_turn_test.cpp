// One request at a time: how a caller gets its turn, and how the turn is passed on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/usb/requests/control_requests.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/kernel_arguments.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

// The releases of the turn, of all semaphores released.
std::vector<KernelArguments::SemaphoreRelease> ReleasesOf(const KernelArguments& arguments,
                                                          PRKSEMAPHORE turn) {
  std::vector<KernelArguments::SemaphoreRelease> releases;
  for (const auto& release : arguments.SemaphoreReleases) {
    if (release.Semaphore == turn) releases.push_back(release);
  }
  return releases;
}

TEST(RequestTurn, IsHandedOnWithAnIncrementOf16WhateverBecameOfTheRequest) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    UsbDeviceRecord& record = world.Record();
    const KernelArguments arguments;
    EXPECT_EQ(AbortPipe(record, nullptr), STATUS_SUCCESS);
    world.Stack.Decide = [](URB&) { return Verdict{kUnsuccessful}; };
    EXPECT_EQ(AbortPipe(record, nullptr), kUnsuccessful);
    record.Connected = 0;
    EXPECT_EQ(AbortPipe(record, nullptr), kGone);
    const KernelArguments::SemaphoreRelease expected{&record.UrbLock, 16, 1, FALSE};
    EXPECT_THAT(ReleasesOf(arguments, &record.UrbLock),
                testing::ElementsAre(expected, expected, expected));
    EXPECT_EQ(record.UrbLock.Header.SignalState, 1);
    EXPECT_EQ(record.UrbLock.Limit, 1);
  });
}

TEST(RequestTurn, IsWaitedForEvenByWhatADeviceThatIsGoneRefuses) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    UsbDeviceRecord& record = world.Record();
    record.Connected = 0;
    host::WaitForever(&record.UrbLock);  // another caller has the turn
    NTSTATUS status = STATUS_SUCCESS;
    bool isOver = false;
    host::TestThread caller([&] {
      status = AbortPipe(record, nullptr);
      isOver = true;
    });
    host::Sleep(host::kSecond);
    EXPECT_FALSE(isOver);
    KeReleaseSemaphore(&record.UrbLock, 0, 1, FALSE);
    caller.Join();
    EXPECT_EQ(status, kGone);
  });
}

TEST(RequestTurn, OfADeviceThatGoesMeanwhileSendsNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    UsbDeviceRecord& record = world.Record();
    host::WaitForever(&record.UrbLock);
    world.Log.Clear();
    NTSTATUS status = STATUS_SUCCESS;
    host::TestThread caller([&] { status = AbortPipe(record, nullptr); });
    host::Sleep(host::kMillisecond);
    record.Connected = 0;
    KeReleaseSemaphore(&record.UrbLock, 0, 1, FALSE);
    caller.Join();
    EXPECT_EQ(status, kGone);
    for (const std::string& line : world.Log.Lines())
      EXPECT_FALSE(line.starts_with("urb ")) << line;
  });
}

TEST(RequestTurn, EndsWithoutABoostForWhoWaitsForTheAnswer) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const KernelArguments arguments;
    EXPECT_EQ(AbortPipe(world.Record(), nullptr), STATUS_SUCCESS);
    ASSERT_EQ(arguments.EventSets.size(), 1U);
    EXPECT_EQ(arguments.EventSets[0].Increment, 0);
    EXPECT_EQ(arguments.EventSets[0].Wait, FALSE);
  });
}

}  // namespace
}  // namespace lidcam::test
