// The same kernel on the machine's threads and clock.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/time_units.h"
#include "tests/base/pattern.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using namespace std::chrono_literals;

TEST(RealTimeKernel, PassesItemsBetweenThreadsUnderALock) {
  constexpr int kItems = 500;
  struct Item {
    LIST_ENTRY Link;
  };
  LIST_ENTRY list;
  KSPIN_LOCK lock;
  KSEMAPHORE ready;
  InitializeListHead(&list);
  KeInitializeSpinLock(&lock);
  KeInitializeSemaphore(&ready, 0, 0x7FFFFFFF);
  std::vector<Item> items(2 * kItems);
  LONG count = 0;
  const auto produce = [&](std::size_t from) {
    for (std::size_t i = from; i < from + kItems; ++i) {
      ExInterlockedInsertTailList(&list, &items[i].Link, &lock);
      InterlockedIncrement(&count);
      KeReleaseSemaphore(&ready, 0, 1, FALSE);
    }
  };
  TestThread first([&] { produce(0); });
  TestThread second([&] { produce(kItems); });
  for (int i = 0; i < 2 * kItems; ++i) {
    WaitForever(&ready);
    EXPECT_NE(ExInterlockedRemoveHeadList(&list, &lock), nullptr);
    InterlockedDecrement(&count);
  }
  first.Join();
  second.Join();
  EXPECT_EQ(count, 0);
}

void AwaitWaiter(Scheduler& world, KEVENT& event) {
  const auto hasWaiter = [&] {
    const std::lock_guard guard(world.Lock());
    return IsListEmpty(&event.Header.WaitListHead) == FALSE;
  };
  while (!hasWaiter()) std::this_thread::yield();
}

TEST(RealTimeKernel, LeavesTheLimitOfAWaitToTheThreadThatWaits) {
  Scheduler& world = CurrentWorld();
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  const auto earliest = [&world] {
    const std::lock_guard guard(world.Lock());
    return world.Timers().Earliest();
  };
  const auto before = earliest();
  TestThread waiter([&event] { EXPECT_EQ(WaitFor(&event, -3600 * kSecond), STATUS_SUCCESS); });
  AwaitWaiter(world, event);
  EXPECT_EQ(earliest(), before);
  KeSetEvent(&event, 0, FALSE);
  waiter.Join();
}

TEST(RealTimeKernel, WakesAnyNumberOfThreadsByOneEvent) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  std::atomic<int> woken = 0;
  std::vector<std::unique_ptr<TestThread>> waiters;
  for (int i = 0; i < 20; ++i) {
    waiters.push_back(std::make_unique<TestThread>([&] {
      WaitForever(&event);
      ++woken;
    }));
  }
  AwaitWaiter(CurrentWorld(), event);
  KeSetEvent(&event, 0, FALSE);
  waiters.clear();
  EXPECT_EQ(woken, 20);
}

/// A thread's state as the system shows it: S if it sleeps.
char StateOf(pid_t thread) {
  std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(stat), {}};
  const std::size_t name = text.rfind(')');
  return name != std::string::npos && name + 2 < text.size() ? text[name + 2] : '?';
}

/// A thread that sleeps for an event, and says so when it was woken.
class Sleeper {
 public:
  Sleeper() {
    KeInitializeEvent(&event_, NotificationEvent, FALSE);
    thread_ = std::make_unique<TestThread>([this] {
      number_ = ::gettid();
      WaitForever(&event_);
      isAwake_ = true;
    });
    AwaitWaiter(CurrentWorld(), event_);
    while (StateOf(number_) != 'S') std::this_thread::yield();
  }

  void Wake() { KeSetEvent(&event_, 0, FALSE); }
  void Join() { thread_->Join(); }
  [[nodiscard]] bool IsAwake() const { return isAwake_; }

 private:
  KEVENT event_{};
  std::atomic<pid_t> number_ = 0;
  std::atomic<bool> isAwake_ = false;
  std::unique_ptr<TestThread> thread_;
};

TEST(RealTimeKernel, WakesThreadsWhenTheCallerLeavesDispatchLevel) {
  Sleeper sleeper;
  KIRQL before{};
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  sleeper.Wake();
  std::this_thread::sleep_for(1ms);
  EXPECT_FALSE(sleeper.IsAwake());
  KeLowerIrql(before);
  sleeper.Join();
}

TEST(RealTimeKernel, WakesAnyNumberOfThreadsAtDispatchLevel) {
  std::array<Sleeper, 20> sleepers;
  KIRQL before{};
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  for (Sleeper& sleeper : sleepers) sleeper.Wake();
  KeLowerIrql(before);
  for (Sleeper& sleeper : sleepers) sleeper.Join();
}

TEST(RealTimeKernel, WakesThreadsForWhichTheCallerSpinsAtDispatchLevel) {
  Sleeper sleeper;
  KIRQL before{};
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  sleeper.Wake();
  while (!sleeper.IsAwake()) YieldProcessor();
  KeLowerIrql(before);
  sleeper.Join();
}

TEST(RealTimeKernel, WakesThreadsAtTheEndOfADeferredCall) {
  struct Call {
    static void NTAPI Run(PKDPC, PVOID context, PVOID, PVOID) {
      static_cast<Sleeper*>(context)->Wake();
    }
  };
  Sleeper sleeper;
  KDPC dpc;
  KeInitializeDpc(&dpc, Call::Run, &sleeper);
  KeInsertQueueDpc(&dpc, nullptr, nullptr);
  sleeper.Join();
}

TEST(RealTimeKernel, EndsAWaitWhoseLimitIsASystemTimeLongAgo) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  EXPECT_EQ(WaitFor(&event, 1), STATUS_TIMEOUT);
}

TEST(RealTimeKernel, KeepsThreadsApartWithASpinLock) {
  KSPIN_LOCK lock;
  KeInitializeSpinLock(&lock);
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < 1000; ++i) {
      KIRQL level = HIGH_LEVEL;
      KeAcquireSpinLock(&lock, &level);
      EXPECT_EQ(level, PASSIVE_LEVEL);
      EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
      ++counter;
      KeReleaseSpinLock(&lock, level);
    }
  };
  TestThread first(count);
  TestThread second(count);
  first.Join();
  second.Join();
  EXPECT_EQ(counter, 2000);
}

TEST(RealTimeKernel, KeepsThreadsApartWithAMutex) {
  KMUTEX mutex;
  KeInitializeMutex(&mutex, 0);
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < 1000; ++i) {
      WaitForever(&mutex);
      ++counter;
      KeReleaseMutex(&mutex, FALSE);
    }
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(counter, 2000);
}

TEST(RealTimeKernel, FiresATimersDpcNotAheadOfItsTime) {
  struct Tick {
    static void NTAPI Run(PKDPC, PVOID context, PVOID, PVOID) {
      auto& self = *static_cast<Tick*>(context);
      self.Level = KeGetCurrentIrql();
      self.At = Now();
      KeSetEvent(&self.Done, 0, FALSE);
    }
    KDPC Dpc;
    KTIMER Timer;
    KEVENT Done;
    KIRQL Level = 0;
    LONGLONG At = 0;
  } tick;
  KeInitializeDpc(&tick.Dpc, Tick::Run, &tick);
  KeInitializeTimerEx(&tick.Timer, SynchronizationTimer);
  KeInitializeEvent(&tick.Done, SynchronizationEvent, FALSE);
  const LONGLONG before = Now();
  KeSetTimer(&tick.Timer, Time(-20 * kMillisecond), &tick.Dpc);
  WaitForever(&tick.Done);
  EXPECT_EQ(tick.Level, DISPATCH_LEVEL);
  EXPECT_GE(tick.At - before, 20 * kMillisecond);
  KeSetTimerEx(&tick.Timer, Time(-kMillisecond), 1, &tick.Dpc);
  for (int i = 0; i < 5; ++i) WaitForever(&tick.Done);
  EXPECT_TRUE(KeCancelTimer(&tick.Timer));
  Sleep(50 * kMillisecond);  // a tick may be in progress
}

TEST(RealTimeKernel, RunsWorkItemsAtPassiveLevel) {
  struct LevelAtWork {
    static void NTAPI Run(PDEVICE_OBJECT, PVOID context) {
      auto& self = *static_cast<LevelAtWork*>(context);
      self.Level = KeGetCurrentIrql();
      KeSetEvent(&self.Done, 0, FALSE);
    }
    KEVENT Done;
    KIRQL Level = HIGH_LEVEL;
  } work;
  KeInitializeEvent(&work.Done, SynchronizationEvent, FALSE);
  const PIO_WORKITEM item = IoAllocateWorkItem(nullptr);
  for (int i = 0; i < 100; ++i) {
    IoQueueWorkItem(item, LevelAtWork::Run, CriticalWorkQueue, &work);
    WaitForever(&work.Done);
  }
  IoFreeWorkItem(item);
  EXPECT_EQ(work.Level, PASSIVE_LEVEL);
}

TEST(RealTimeKernel, TellsTheSystemTimeOfTheMachine) {
  constexpr LONGLONG kUnixEpoch = 116'444'736'000'000'000;
  LARGE_INTEGER time{};
  KeQuerySystemTime(&time);
  const auto machine = std::chrono::duration_cast<std::chrono::seconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
  EXPECT_NEAR(static_cast<double>((time.QuadPart - kUnixEpoch) / kSecond),
              static_cast<double>(machine), 5.0);
}

TEST(RealTimeKernel, WaitsForAThreadThatEndsItself) {
  const auto end = [](PVOID context) NTAPI {
    *static_cast<std::atomic<bool>*>(context) = true;
    PsTerminateSystemThread(STATUS_SUCCESS);
  };
  for (int i = 0; i < 50; ++i) {
    std::atomic<bool> isDone = false;
    HANDLE handle = nullptr;
    PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, end, &isDone);
    PVOID object = nullptr;
    ObReferenceObjectByHandle(handle, 0, nullptr, KernelMode, &object, nullptr);
    ZwClose(handle);
    WaitForever(object);
    EXPECT_TRUE(isDone);
    ObDereferenceObject(object);
  }
}

TEST(RealTimeKernel, EndsOnlyTheRoutineThatMadeAViolation) {
  const VerifierCapture capture;
  KEVENT done;
  KDPC bad;
  KDPC good;
  KeInitializeEvent(&done, SynchronizationEvent, FALSE);
  KeInitializeDpc(
      &bad, [](PKDPC, PVOID, PVOID, PVOID) NTAPI { Sleep(1); }, nullptr);
  KeInitializeDpc(
      &good,
      [](PKDPC, PVOID context, PVOID, PVOID)
          NTAPI { KeSetEvent(static_cast<PRKEVENT>(context), 0, FALSE); },
      &done);
  for (std::size_t i = 0; i < 4; ++i) {
    KeInsertQueueDpc(&bad, nullptr, nullptr);
    KeInsertQueueDpc(&good, nullptr, nullptr);
    EXPECT_EQ(WaitForever(&done), STATUS_SUCCESS);
    // The two run concurrently: the bad one may still be queued when the good one has ended.
    while (capture.Violations().size() <= i) std::this_thread::sleep_for(1ms);
  }
}

// Calls are stamped with the processor's count, at a rate of its own.
TEST(RealTimeKernel, ReportsTheTimesOfTheLastCallsByTheClock) {
  // In seconds: a busy machine may run another program between two looks at the time.
  constexpr double kNearby = 60;
  const VerifierCapture capture;
  const double before = base::SecondsOfUnits(Now());
  EXPECT_EQ(capture.Of([] { KeLowerIrql(DISPATCH_LEVEL); }),
            "KeLowerIrql: level 2 is above the present level 0");
  const std::string report = capture.Violations().at(0).Report;
  const std::vector<test::PatternMatch> calls =
      test::MatchesOf(report, "([0-9.]+) s  thread [0-9]+ +level 0  KeLowerIrql");
  ASSERT_FALSE(calls.empty());
  EXPECT_NEAR(std::stod(calls.front().Group), before, kNearby);
}

// A machine thread that the simulation didn't make can't take part in it.
TEST(RealTimeKernel, RefusesAMachineThreadBesideASimulation) {
  const VerifierCapture capture;
  bool isRefused = false;
  Simulate({}, [&] {
    std::thread stranger([&] {
      try {
        KeGetCurrentIrql();
      } catch (const KernelStopped&) {
        isRefused = true;
      }
    });
    stranger.join();
  });
  EXPECT_TRUE(isRefused);
  EXPECT_EQ(capture.Violations().at(0).What,
            "a machine thread that no simulation made runs beside one");
}

}  // namespace
}  // namespace lidcam::host
