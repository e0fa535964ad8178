#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr LONGLONG kMillisecond = 10'000;  // in units of 100 ns

NTSTATUS WaitFor(KEVENT& event, LONGLONG timeout) {
  LARGE_INTEGER limit{};
  limit.QuadPart = timeout;
  return KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &limit);
}

NTSTATUS WaitForever(KEVENT& event) {
  return KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
}

TEST(HostEvent, TimesOutAfterTheRelativeTimeAndNotBefore) {
  for (const EVENT_TYPE type : {NotificationEvent, SynchronizationEvent}) {
    KEVENT event;
    KeInitializeEvent(&event, type, FALSE);
    const auto started = Clock::now();
    EXPECT_EQ(WaitFor(event, -30 * kMillisecond), STATUS_TIMEOUT);
    EXPECT_GE(Clock::now() - started, 30ms);
  }
}

TEST(HostEvent, TimeoutIsStatus102) {
  EXPECT_EQ(STATUS_TIMEOUT, 0x102);
}

TEST(HostEvent, WithTimeoutZeroAnswersAtOnce) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  EXPECT_EQ(WaitFor(event, 0), STATUS_TIMEOUT);
  KeSetEvent(&event, 0, FALSE);
  EXPECT_EQ(WaitFor(event, 0), STATUS_SUCCESS);
}

TEST(HostEvent, NotificationLetsEveryWaiterThrough) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  EXPECT_EQ(WaitFor(event, 0), STATUS_SUCCESS);
  EXPECT_EQ(WaitFor(event, 0), STATUS_SUCCESS);
}

TEST(HostEvent, SynchronizationLetsOneWaiterThrough) {
  KEVENT event;
  KeInitializeEvent(&event, SynchronizationEvent, TRUE);
  EXPECT_EQ(WaitFor(event, 0), STATUS_SUCCESS);
  EXPECT_EQ(WaitFor(event, 0), STATUS_TIMEOUT);
}

TEST(HostEvent, SetTellsTheStateBefore) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 0);
  EXPECT_NE(KeSetEvent(&event, 0, FALSE), 0);
}

TEST(HostEvent, WakesAWaiterOnAnotherThread) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  std::atomic<bool> isThrough = false;
  std::thread waiter([&] {
    EXPECT_EQ(WaitForever(event), STATUS_SUCCESS);
    isThrough = true;
  });
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(isThrough);
  KeSetEvent(&event, 0, FALSE);
  waiter.join();
}

TEST(HostEvent, SynchronizationWakesOneOfTwoWaitersAtATime) {
  KEVENT event;
  KeInitializeEvent(&event, SynchronizationEvent, FALSE);
  std::atomic<int> through = 0;
  const auto wait = [&] {
    WaitForever(event);
    ++through;
  };
  std::thread first(wait);
  std::thread second(wait);
  KeSetEvent(&event, 0, FALSE);
  while (through == 0) std::this_thread::yield();
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(through, 1);
  KeSetEvent(&event, 0, FALSE);
  first.join();
  second.join();
  EXPECT_EQ(through, 2);
}

// The longest relative time that can be represented is still a wait, and ends when the event is
// set.
TEST(HostEvent, WaitsThroughTheLongestTimeoutUntilSet) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  std::thread setter([&] {
    std::this_thread::sleep_for(30ms);
    KeSetEvent(&event, 0, FALSE);
  });
  EXPECT_EQ(WaitFor(event, std::numeric_limits<LONGLONG>::min()), STATUS_SUCCESS);
  setter.join();
}

}  // namespace
}  // namespace lidcam::host
