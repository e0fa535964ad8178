// Events, semaphores, mutexes and waits, in virtual time.

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <vector>

#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

NTSTATUS WaitForBoth(PVOID first, PVOID second, WAIT_TYPE type, LONGLONG limit) {
  std::array<PVOID, 2> objects{first, second};
  LARGE_INTEGER time = Time(limit);
  return KeWaitForMultipleObjects(2, objects.data(), type, Executive, KernelMode, FALSE, &time,
                                  nullptr);
}

TEST(SimulatedEvent, NotificationStaysSetForEveryWaiterUntilReset) {
  UnderManySeeds([] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    int through = 0;
    TestThread first([&] { through += WaitForever(&event) == STATUS_SUCCESS ? 1 : 0; });
    TestThread second([&] { through += WaitForever(&event) == STATUS_SUCCESS ? 1 : 0; });
    EXPECT_EQ(KeSetEvent(&event, 1, FALSE), 0);
    first.Join();
    second.Join();
    EXPECT_EQ(through, 2);
    EXPECT_EQ(KeReadStateEvent(&event), 1);
    EXPECT_EQ(KeResetEvent(&event), 1);
    EXPECT_EQ(KeResetEvent(&event), 0);
    EXPECT_EQ(WaitFor(&event, 0), STATUS_TIMEOUT);
  });
}

TEST(SimulatedEvent, SynchronizationGoesToOneWaiterAndIsUnsetAgain) {
  UnderManySeeds([] {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    int through = 0;
    TestThread first([&] { through += WaitFor(&event, -kSecond) == STATUS_SUCCESS ? 1 : 0; });
    TestThread second([&] { through += WaitFor(&event, -kSecond) == STATUS_SUCCESS ? 1 : 0; });
    KeSetEvent(&event, 1, FALSE);
    first.Join();
    second.Join();
    EXPECT_EQ(through, 1);
    EXPECT_EQ(KeReadStateEvent(&event), 0);
  });
}

TEST(SimulatedEvent, SetTwiceWithoutAWaiterLetsOneThrough) {
  Simulate({}, [] {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 0);
    EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 1);
    EXPECT_EQ(WaitFor(&event, 0), STATUS_SUCCESS);
    EXPECT_EQ(WaitFor(&event, 0), STATUS_TIMEOUT);
    KeSetEvent(&event, 0, FALSE);
    KeClearEvent(&event);
    EXPECT_EQ(WaitFor(&event, 0), STATUS_TIMEOUT);
  });
}

TEST(SimulatedSemaphore, LetsAsManyThroughAsWereReleased) {
  UnderManySeeds([] {
    KSEMAPHORE semaphore;
    KeInitializeSemaphore(&semaphore, 0, 0x7FFFFFFF);
    int through = 0;
    const auto wait = [&] { through += WaitFor(&semaphore, -kSecond) == STATUS_SUCCESS ? 1 : 0; };
    TestThread first(wait);
    TestThread second(wait);
    TestThread third(wait);
    EXPECT_EQ(KeReleaseSemaphore(&semaphore, 16, 2, FALSE), 0);
    first.Join();
    second.Join();
    third.Join();
    EXPECT_EQ(through, 2);
  });
}

TEST(SimulatedSemaphore, KeepsItsCountAndTellsTheOneBefore) {
  Simulate({}, [] {
    KSEMAPHORE semaphore;
    KeInitializeSemaphore(&semaphore, 1, 3);
    EXPECT_EQ(KeReleaseSemaphore(&semaphore, 0, 2, FALSE), 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(WaitFor(&semaphore, 0), STATUS_SUCCESS);
    EXPECT_EQ(WaitFor(&semaphore, 0), STATUS_TIMEOUT);
    EXPECT_EQ(KeReleaseSemaphore(&semaphore, 0, 1, FALSE), 0);
  });
}

TEST(SimulatedSemaphore, OfCountOneKeepsRequestsApart) {
  UnderManySeeds([] {
    KSEMAPHORE lock;
    KeInitializeSemaphore(&lock, 1, 1);
    int inside = 0;
    const auto request = [&] {
      for (int i = 0; i < 3; ++i) {
        WaitForever(&lock);
        EXPECT_EQ(++inside, 1);
        Sleep(10);
        --inside;
        KeReleaseSemaphore(&lock, 16, 1, FALSE);
      }
    };
    TestThread first(request);
    TestThread second(request);
  });
}

TEST(SimulatedMutex, IsTakenAgainByItsOwnerAndFreedByTheLastRelease) {
  UnderManySeeds([] {
    KMUTEX mutex;
    KeInitializeMutex(&mutex, 0);
    EXPECT_EQ(WaitForever(&mutex), STATUS_SUCCESS);
    EXPECT_EQ(WaitForever(&mutex), STATUS_SUCCESS);
    NTSTATUS early = STATUS_UNSUCCESSFUL;
    NTSTATUS late = STATUS_UNSUCCESSFUL;
    TestThread other([&] {
      early = WaitFor(&mutex, -10);
      late = WaitFor(&mutex, -100);
      KeReleaseMutex(&mutex, FALSE);
    });
    EXPECT_LT(KeReleaseMutex(&mutex, FALSE), 0);
    Sleep(50);
    EXPECT_EQ(KeReleaseMutex(&mutex, FALSE), 0);
    other.Join();
    EXPECT_EQ(early, STATUS_TIMEOUT);
    EXPECT_EQ(late, STATUS_SUCCESS);
  });
}

// The camera's time limits, exact to 100 ns, without real waiting.
TEST(SimulatedWait, EndsAtItsLimitExactly) {
  for (const LONGLONG limit : {LONGLONG{1}, LONGLONG{20000}, 250 * kMillisecond, 5 * kSecond,
                               8 * kSecond, 24 * 3600 * kSecond}) {
    const SimulationOutcome outcome = Simulate({}, [limit] {
      KEVENT event;
      KeInitializeEvent(&event, SynchronizationEvent, FALSE);
      const LONGLONG before = Now();
      EXPECT_EQ(WaitFor(&event, -limit), STATUS_TIMEOUT);
      EXPECT_EQ(Now() - before, limit);
    });
    EXPECT_EQ(outcome.Time, limit);
  }
}

TEST(SimulatedWait, EndsAtAnAbsoluteSystemTime) {
  Simulate({}, [] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    LARGE_INTEGER now{};
    KeQuerySystemTime(&now);
    EXPECT_EQ(WaitFor(&event, now.QuadPart + 12345), STATUS_TIMEOUT);
    LARGE_INTEGER after{};
    KeQuerySystemTime(&after);
    EXPECT_EQ(after.QuadPart - now.QuadPart, 12345);
  });
}

TEST(SimulatedWait, SucceedsWhenTheSignalComesOneUnitAheadOfTheLimit) {
  UnderManySeeds([] {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    TestThread setter([&] {
      Sleep(5 * kSecond - 1);
      KeSetEvent(&event, 0, FALSE);
    });
    EXPECT_EQ(WaitFor(&event, -5 * kSecond), STATUS_SUCCESS);
  });
}

TEST(SimulatedWait, LasterThanALifetimeStillEndsWithTheSignal) {
  Simulate({}, [] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    TestThread setter([&] {
      Sleep(kSecond);
      KeSetEvent(&event, 0, FALSE);
    });
    EXPECT_EQ(WaitFor(&event, std::numeric_limits<LONGLONG>::min()), STATUS_SUCCESS);
    EXPECT_EQ(Now(), kSecond);
  });
}

TEST(SimulatedWait, ForAnyTellsWhichAndTakesOnlyThat) {
  Simulate({}, [] {
    KEVENT first;
    KEVENT second;
    KeInitializeEvent(&first, SynchronizationEvent, FALSE);
    KeInitializeEvent(&second, SynchronizationEvent, TRUE);
    EXPECT_EQ(WaitForBoth(&first, &second, WaitAny, 0), STATUS_WAIT_0 + 1);
    EXPECT_EQ(WaitForBoth(&first, &second, WaitAny, -10), STATUS_TIMEOUT);
    KeSetEvent(&first, 0, FALSE);
    KeSetEvent(&second, 0, FALSE);
    EXPECT_EQ(WaitForBoth(&first, &second, WaitAny, 0), STATUS_WAIT_0);
    EXPECT_EQ(KeReadStateEvent(&second), 1);
  });
}

TEST(SimulatedWait, ForAllTakesNothingUntilAllAreThere) {
  UnderManySeeds([] {
    KEVENT event;
    KSEMAPHORE semaphore;
    KeInitializeEvent(&event, SynchronizationEvent, TRUE);
    KeInitializeSemaphore(&semaphore, 0, 5);
    EXPECT_EQ(WaitForBoth(&event, &semaphore, WaitAll, -10), STATUS_TIMEOUT);
    EXPECT_EQ(KeReadStateEvent(&event), 1);
    TestThread releaser([&] {
      Sleep(10);
      KeReleaseSemaphore(&semaphore, 0, 2, FALSE);
    });
    EXPECT_EQ(WaitForBoth(&event, &semaphore, WaitAll, -20), STATUS_SUCCESS);
    EXPECT_EQ(KeReadStateEvent(&event), 0);
    EXPECT_EQ(WaitFor(&semaphore, 0), STATUS_SUCCESS);
    EXPECT_EQ(WaitFor(&semaphore, 0), STATUS_TIMEOUT);
  });
}

TEST(SimulatedWait, ForAnyOfTwoLeavesTheOtherQueueBehind) {
  UnderManySeeds([] {
    KEVENT first;
    KEVENT second;
    KeInitializeEvent(&first, SynchronizationEvent, FALSE);
    KeInitializeEvent(&second, SynchronizationEvent, FALSE);
    NTSTATUS status = STATUS_UNSUCCESSFUL;
    TestThread waiter([&] { status = WaitForBoth(&first, &second, WaitAny, -kSecond); });
    KeSetEvent(&second, 0, FALSE);
    waiter.Join();
    EXPECT_EQ(status, STATUS_WAIT_0 + 1);
    KeSetEvent(&first, 0, FALSE);
    EXPECT_EQ(KeReadStateEvent(&first), 1);  // no thread is left to take it
  });
}

TEST(SimulatedWait, ServesWaitersInTheOrderOfTheirComing) {
  UnderManySeeds([] {
    KSEMAPHORE semaphore;
    KeInitializeSemaphore(&semaphore, 0, 10);
    std::vector<NTSTATUS> statuses(3, STATUS_UNSUCCESSFUL);
    const auto waitFrom = [&](std::size_t place) {
      Sleep(static_cast<LONGLONG>(place) + 1);
      statuses[place] = WaitFor(&semaphore, -kSecond);
    };
    TestThread first([&] { waitFrom(0); });
    TestThread second([&] { waitFrom(1); });
    TestThread third([&] { waitFrom(2); });
    Sleep(100);
    KeReleaseSemaphore(&semaphore, 0, 1, FALSE);
    first.Join();
    EXPECT_EQ(statuses[0], STATUS_SUCCESS);
    EXPECT_LT(Now(), kSecond);
  });
}

TEST(SimulatedDelay, SleepsAsLongAsAsked) {
  Simulate({}, [] {
    Sleep(20000);
    EXPECT_EQ(Now(), 20000);
    LARGE_INTEGER none = Time(0);
    EXPECT_EQ(KeDelayExecutionThread(KernelMode, FALSE, &none), STATUS_SUCCESS);
    EXPECT_EQ(Now(), 20000);
  });
}

}  // namespace
}  // namespace lidcam::host
