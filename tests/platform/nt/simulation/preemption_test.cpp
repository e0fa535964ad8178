// Switch points between two kernel calls, and stalled threads while time advances.

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/shared_access.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

/// A field as drivers share it between threads.
class Field {
 public:
  [[nodiscard]] int Load() const {
    BeforeSharedLoad(this);
    return value_;
  }
  void Store(int value) {
    BeforeSharedStore(this);
    value_ = value;
  }

 private:
  int value_ = 0;
};

constexpr std::uint64_t kSeeds = 60;

/// Number of seeds with which `body` deadlocks.
int DeadlocksOf(const std::function<void()>& body, bool hasPreemptionPoints) {
  int deadlocks = 0;
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    const std::string violation =
        ViolationOf(body, {.Seed = seed, .HasPreemptionPoints = hasPreemptionPoints});
    if (violation.empty()) continue;
    EXPECT_EQ(violation, "scheduler: deadlock: every thread waits and no time limit runs");
    ++deadlocks;
  }
  return deadlocks;
}

// The waiter raises the flag first; the other thread clears it too late.
template <typename Raise, typename IsRaised, typename TakeBack>
void WaitTwice(Raise raise, IsRaised isRaised, TakeBack takeBack) {
  KEVENT event;
  KeInitializeEvent(&event, SynchronizationEvent, FALSE);
  TestThread setter([&] {
    for (int ended = 0; ended < 2; ++ended) {
      for (int looks = 0; looks < 5 && !isRaised(); ++looks) Sleep(kMillisecond);
      if (!isRaised()) return;
      KeSetEvent(&event, IO_NO_INCREMENT, FALSE);
      takeBack();
    }
  });
  for (int waits = 0; waits < 2; ++waits) {
    raise();
    WaitForever(&event);
  }
}

void WaitTwiceWithASharedFlag() {
  Field flag;
  WaitTwice([&] { flag.Store(1); }, [&] { return flag.Load() != 0; }, [&] { flag.Store(0); });
}

void WaitTwiceWithAPlainFlag() {
  volatile int flag = 0;
  WaitTwice([&] { flag = 1; }, [&] { return flag != 0; }, [&] { flag = 0; });
}

TEST(Preemption, FlagTakenBackBehindItsEventIsFoundAtTheStore) {
  EXPECT_EQ(DeadlocksOf(WaitTwiceWithASharedFlag, false), 0);
  EXPECT_GT(DeadlocksOf(WaitTwiceWithASharedFlag, true), 0);
}

TEST(Preemption, FlagTakenBackBehindItsEventIsFoundBehindTheCall) {
  EXPECT_EQ(DeadlocksOf(WaitTwiceWithAPlainFlag, false), 0);
  EXPECT_GT(DeadlocksOf(WaitTwiceWithAPlainFlag, true), 0);
}

int LostUpdates(bool hasPreemptionPoints) {
  int lost = 0;
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    Field counter;
    Simulate({.Seed = seed, .HasPreemptionPoints = hasPreemptionPoints}, [&] {
      const auto count = [&] { counter.Store(counter.Load() + 1); };
      TestThread first(count);
      TestThread second(count);
      first.Join();
      second.Join();
    });
    if (counter.Load() != 2) ++lost;
  }
  return lost;
}

TEST(Preemption, LoadAndStoreOfAFieldAreTwoSteps) {
  EXPECT_EQ(LostUpdates(false), 0);
  EXPECT_GT(LostUpdates(true), 0);
}

TEST(Preemption, IsTheSameRunForTheSameSeed) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const auto play = [seed](bool hasPoints) {
      return Simulate({.Seed = seed, .HasPreemptionPoints = hasPoints}, [] {
        Field field;
        TestThread other([&] { field.Store(field.Load() + 1); });
        field.Store(field.Load() + 1);
      });
    };
    EXPECT_EQ(play(true), play(true));
    EXPECT_GT(play(true).ScheduleLength, play(false).ScheduleLength);
  }
}

// A spinning thread's own loads are no progress that another spinning thread waits for.
TEST(Preemption, SpinningThreadThatLooksAtAFieldLetsTimeGoOn) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    Simulate({.Seed = seed, .HasPreemptionPoints = true}, [] {
      Field isSet;
      TestThread setter([&] {
        Sleep(3 * kSecond);
        isSet.Store(1);
      });
      while (isSet.Load() == 0) YieldProcessor();
      EXPECT_EQ(Now(), 3 * kSecond);
    });
  }
}

struct StoresAtItsEnd {
  explicit StoresAtItsEnd(Field& field) : Target(field) {}
  StoresAtItsEnd(const StoresAtItsEnd&) = delete;
  StoresAtItsEnd& operator=(const StoresAtItsEnd&) = delete;
  ~StoresAtItsEnd() {
    for (int i = 0; i < 10; ++i) Target.Store(i);
  }
  Field& Target;
};

TEST(Preemption, WorldThatStopsUnwindsThreadsThroughDestructorsThatTouchFields) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    Field field;
    EXPECT_EQ(ViolationOf(
                  [&] {
                    TestThread other([&] {
                      const StoresAtItsEnd end(field);
                      for (;;) {
                        field.Store(1);
                        KeGetCurrentIrql();
                      }
                    });
                    const StoresAtItsEnd end(field);
                    Sleep(0);
                    KeLowerIrql(DISPATCH_LEVEL);
                  },
                  {.Seed = seed, .HasPreemptionPoints = true}),
              "KeLowerIrql: level 2 is above the present level 0");
  }
}

TEST(Preemption, FieldsOfTheRealWorldHaveNoPoints) {
  Field field;
  field.Store(1);
  EXPECT_EQ(field.Load(), 1);
}

// ---- Stalls.

/// Stalls the first thread that reaches a call with an object.
struct StallOnce {
  const char* Call;
  const void* Object;
  LONGLONG Time;
  bool IsOver = false;

  LONGLONG At(const SwitchPlace& place) {
    const bool isThere =
        !IsOver && place.Subject.Object == Object && std::strcmp(place.Subject.Name, Call) == 0;
    IsOver = IsOver || isThere;
    return isThere ? Time : 0;
  }
};

TEST(Stall, LetsTimeGoOnForAllOthers) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    KEVENT event;
    StallOnce stall{"KeSetEvent", &event, 5 * kSecond};
    std::optional<LONGLONG> slept;
    std::optional<LONGLONG> set;
    Simulate(
        {.Seed = seed, .AtSwitchPoint = [&](const SwitchPlace& place) { return stall.At(place); }},
        [&] {
          KeInitializeEvent(&event, NotificationEvent, FALSE);
          TestThread sleeper([&] {
            for (int i = 0; i < 3; ++i) Sleep(kSecond);
            slept = Now();
          });
          TestThread setter([&] {
            Sleep(kMillisecond);
            KeSetEvent(&event, IO_NO_INCREMENT, FALSE);
            set = Now();
          });
          EXPECT_EQ(WaitFor(&event, -2 * kSecond), STATUS_TIMEOUT);
          WaitForever(&event);
          EXPECT_EQ(Now(), 5 * kSecond + kMillisecond);
        });
    EXPECT_EQ(slept, 3 * kSecond);
    EXPECT_EQ(set, 5 * kSecond + kMillisecond);
  }
}

TEST(Stall, KeepsTheLocksThatTheThreadHolds) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    KSPIN_LOCK lock;
    StallOnce stall{"KeReleaseSpinLock", &lock, kSecond};
    Simulate(
        {.Seed = seed, .AtSwitchPoint = [&](const SwitchPlace& place) { return stall.At(place); }},
        [&] {
          KeInitializeSpinLock(&lock);
          const auto pass = [&] {
            KIRQL before = 0;
            KeAcquireSpinLock(&lock, &before);
            KeReleaseSpinLock(&lock, before);
            EXPECT_EQ(Now(), kSecond);
          };
          TestThread first(pass);
          TestThread second(pass);
        });
  }
}

TEST(Stall, OfAPreemptionPointIsWaitedForByTheEndOfTheSimulation) {
  Field field;
  StallOnce stall{"store", &field, 7 * kSecond};
  const SimulationOutcome outcome = Simulate(
      {.HasPreemptionPoints = true,
       .AtSwitchPoint = [&](const SwitchPlace& place) { return stall.At(place); }},
      [&] {
        HANDLE handle = nullptr;
        const auto run = [](PVOID context) NTAPI { static_cast<Field*>(context)->Store(1); };
        PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, run, &field);
        ZwClose(handle);
      });
  EXPECT_EQ(outcome.Time, 7 * kSecond);
  EXPECT_EQ(field.Load(), 1);
}

TEST(Stall, IsTheSameRunForTheSameSeed) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const auto play = [seed] {
      return Simulate(
          {.Seed = seed,
           .HasPreemptionPoints = true,
           .AtSwitchPoint =
               [](const SwitchPlace& place) { return place.Number % 5 == 0 ? kMillisecond : 0; }},
          [] {
            Field field;
            TestThread other([&] { field.Store(field.Load() + 1); });
            for (int i = 0; i < 5; ++i) field.Store(field.Load() + 1);
          });
    };
    EXPECT_EQ(play(), play());
  }
}

// Otherwise eighty of its turns at each point of time would use up a long run.
TEST(Stall, ThreadThatSpinsForGoodIsNotRunAnyMore) {
  std::uint64_t points = 0;
  const VerifierCapture capture;
  EXPECT_THROW(Simulate({.AtSwitchPoint =
                             [&points](const SwitchPlace& place) {
                               points = place.Number;
                               return LONGLONG{0};
                             }},
                        [] {
                          HANDLE handle = nullptr;
                          const auto spin = [](PVOID) NTAPI {
                            CurrentThread().SpinsForGood = true;
                            for (;;) YieldProcessor();
                          };
                          PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, spin,
                                               nullptr);
                          ZwClose(handle);
                          for (int i = 0; i < 100; ++i) Sleep(kMillisecond);
                        }),
               KernelStopped);
  EXPECT_LT(points, 200U);
  EXPECT_EQ(capture.Violations().front().What, "thread 1 still runs, last seen in YieldProcessor");
}

}  // namespace
}  // namespace lidcam::host
