#include "driver/avstream/device/rundown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

#include "tests/driver/usb/support/kernel_arguments.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;

TEST(Rundown, LetsEverybodyInUntilItIsClosedAndAgainOnceItIsOpen) {
  host::Simulate({}, [] {
    Rundown gate;
    EXPECT_TRUE(gate.Enter());
    EXPECT_TRUE(gate.Enter());
    gate.Leave();
    gate.Leave();
    gate.Close();
    EXPECT_FALSE(gate.Enter());
    gate.Open();
    EXPECT_TRUE(gate.Enter());
    gate.Leave();
  });
}

TEST(Rundown, ClosingWaitsForTheLastOneInside) {
  host::Simulate({}, [] {
    Rundown gate;
    ASSERT_TRUE(gate.Enter());
    ASSERT_TRUE(gate.Enter());
    LONGLONG closedAt = 0;
    host::TestThread closer([&] {
      gate.Close();
      closedAt = host::Now();
    });
    host::Sleep(3 * kMillisecond);
    EXPECT_FALSE(gate.Enter()) << "closed already";
    gate.Leave();
    host::Sleep(4 * kMillisecond);
    EXPECT_EQ(closedAt, 0);
    gate.Leave();
    closer.Join();
    EXPECT_EQ(closedAt, 7 * kMillisecond);
  });
}

// A start closes the gate under the device's mutex. A thread that enters the gate and then takes
// the mutex may deadlock with that start.
TEST(Rundown, ALockThatIsTakenInsideAndHeldWhileClosingIsAViolation) {
  const std::string violation = host::ViolationOf([] {
    Rundown gate;
    KMUTEX mutex{};
    KeInitializeMutex(&mutex, 0);
    {
      const RundownHold hold(gate);
      host::WaitForever(&mutex);
      KeReleaseMutex(&mutex, FALSE);
    }
    host::WaitForever(&mutex);
    gate.Close();
  });
  EXPECT_THAT(violation, testing::StartsWith("rundown: "));
  EXPECT_THAT(violation, testing::HasSubstr("the other way round"));
}

TEST(Rundown, TheLockFirstOnBothSidesIsInOrder) {
  host::Simulate({}, [] {
    Rundown gate;
    KMUTEX mutex{};
    KeInitializeMutex(&mutex, 0);
    for (int i = 0; i < 2; ++i) {
      host::WaitForever(&mutex);
      { const RundownHold hold(gate); }
      gate.Close();
      gate.Open();
      KeReleaseMutex(&mutex, FALSE);
    }
  });
}

TEST(Rundown, ClosingFromWithinIsAViolation) {
  EXPECT_THAT(host::ViolationOf([] {
                Rundown gate;
                const RundownHold hold(gate);
                gate.Close();
              }),
              testing::StartsWith("rundown: "));
}

// Calls of the kernel for the gate's own event, with arguments that don't show in their effects.
TEST(Rundown, ItsWaitIsForTheKernelAndNotAlertableAndItsWakingGivesNoBoost) {
  host::Simulate({}, [] {
    Rundown gate;
    const auto isOfGate = [&gate](const void* object) {
      const auto* const begin = reinterpret_cast<const char*>(&gate);
      return object >= begin && object < begin + sizeof(gate);
    };
    ASSERT_TRUE(gate.Enter());
    const KernelArguments arguments;
    host::TestThread closer([&] { gate.Close(); });
    host::Sleep(kMillisecond);
    gate.Leave();
    closer.Join();
    int waits = 0;
    for (const KernelArguments::Wait& wait : arguments.Waits) {
      if (!isOfGate(wait.Object)) continue;
      ++waits;
      EXPECT_EQ(wait.Reason, Executive);
      EXPECT_EQ(wait.Mode, KernelMode);
      EXPECT_EQ(wait.Alertable, FALSE);
    }
    EXPECT_EQ(waits, 1);
    int settings = 0;
    for (const KernelArguments::EventSet& setting : arguments.EventSets) {
      if (!isOfGate(setting.Event)) continue;
      ++settings;
      EXPECT_EQ(setting.Increment, IO_NO_INCREMENT);
      EXPECT_EQ(setting.Wait, FALSE);
    }
    EXPECT_EQ(settings, 1);
  });
}

TEST(Rundown, ClosingTwiceIsAViolation) {
  EXPECT_NE(host::ViolationOf([] {
              Rundown gate;
              gate.Close();
              gate.Close();
            }),
            "");
}

TEST(Rundown, AHoldThatWasNotLetInLeavesNothing) {
  host::Simulate({}, [] {
    Rundown gate;
    gate.Close();
    {
      const RundownHold hold(gate);
      EXPECT_FALSE(hold.IsInside());
    }
    gate.Open();
    {
      const RundownHold hold(gate);
      EXPECT_TRUE(hold.IsInside());
    }
    gate.Close();
  });
}

TEST(Rundown, ClosingDoesNotWaitForOneThatHasStoppedForGood) {
  host::Simulate({}, [] {
    Rundown gate;
    ASSERT_TRUE(gate.Enter());
    gate.Abandon();
    gate.Close();
    gate.Open();
    ASSERT_TRUE(gate.Enter());
    LONGLONG closedAt = 0;
    host::TestThread closer([&] {
      gate.Close();
      closedAt = host::Now();
    });
    host::Sleep(3 * kMillisecond);
    EXPECT_EQ(closedAt, 0) << "the user that entered since is waited for";
    gate.Leave();
    closer.Join();
    EXPECT_EQ(closedAt, 3 * kMillisecond);
  });
}

TEST(Rundown, ClosingEndsAsTheLastOneInsideStopsForGood) {
  host::Simulate({}, [] {
    Rundown gate;
    ASSERT_TRUE(gate.Enter());
    ASSERT_TRUE(gate.Enter());
    LONGLONG closedAt = 0;
    host::TestThread closer([&] {
      gate.Close();
      closedAt = host::Now();
    });
    host::Sleep(3 * kMillisecond);
    gate.Leave();
    host::Sleep(4 * kMillisecond);
    gate.Abandon();
    closer.Join();
    EXPECT_EQ(closedAt, 7 * kMillisecond);
  });
}

// The closing thread may free the gate afterwards: those that leave or stop no longer touch it.
TEST(Rundown, IsNotTouchedBehindTheCloseByThoseThatLeaveOrStop) {
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    const auto close = [] {
      void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(Rundown), 0x65746147);
      auto* const gate = new (memory) Rundown;
      constexpr LONG kUsers = 3;
      KSEMAPHORE inside;
      KeInitializeSemaphore(&inside, 0, kUsers);
      const auto enter = [gate, &inside] {
        EXPECT_TRUE(gate->Enter());
        KeReleaseSemaphore(&inside, IO_NO_INCREMENT, 1, FALSE);
      };
      const auto use = [gate, enter] {
        enter();
        gate->Leave();
      };
      host::TestThread first(use);
      host::TestThread second(use);
      host::TestThread third([gate, enter] {
        enter();
        gate->Abandon();
      });
      for (LONG user = 0; user < kUsers; ++user) {
        KeWaitForSingleObject(&inside, Executive, KernelMode, FALSE, nullptr);
      }
      gate->Close();
      ExFreePool(gate);
    };
    EXPECT_EQ(host::ViolationOf(close, {.Seed = seed, .HasPreemptionPoints = true}), "")
        << "seed " << seed;
  }
}

// No user is inside while the gate is closed, under any order of the threads, and no thread waits
// for a wake-up that has come already.
TEST(Rundown, NoUserIsInsideAfterACloseUnderAnySchedule) {
  LONG entered = 0;
  host::UnderManySeeds(
      [&entered] {
        Rundown gate;
        volatile LONG inside = 0;
        const auto use = [&] {
          for (int i = 0; i < 6; ++i) {
            const RundownHold hold(gate);
            if (!hold.IsInside()) continue;
            InterlockedIncrement(&inside);
            ++entered;
            if (i % 2 != 0) host::Sleep(kMillisecond / 10);
            InterlockedDecrement(&inside);
          }
        };
        host::TestThread first(use);
        host::TestThread second(use);
        for (int i = 0; i < 5; ++i) {
          gate.Close();
          EXPECT_EQ(InterlockedCompareExchange(&inside, 0, 0), 0);
          gate.Open();
          host::Sleep(kMillisecond / 10);
        }
        first.Join();
        second.Join();
      },
      200);
  EXPECT_GT(entered, 200);
}

}  // namespace
}  // namespace lidcam::test
