#include "driver/avstream/request_gate.h"

#include <gtest/gtest.h>

#include "tests/platform/simulation_support.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;

TEST(RequestGate, LetsEverybodyInUntilItIsClosedAndAgainOnceItIsOpen) {
  host::Simulate({}, [] {
    RequestGate gate;
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

TEST(RequestGate, ClosingWaitsForTheLastOneInside) {
  host::Simulate({}, [] {
    RequestGate gate;
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

TEST(RequestGate, AHoldThatWasNotLetInLeavesNothing) {
  host::Simulate({}, [] {
    RequestGate gate;
    gate.Close();
    {
      const GateHold hold(gate);
      EXPECT_FALSE(hold.IsInside());
    }
    gate.Open();
    {
      const GateHold hold(gate);
      EXPECT_TRUE(hold.IsInside());
    }
    gate.Close();
  });
}

// Nobody is inside while the gate is closed, whatever the order in which all of them get on, and
// nobody waits for a wake-up that has come already.
TEST(RequestGate, NobodyIsInsideBehindACloseUnderAnySchedule) {
  LONG entered = 0;
  host::UnderManySeeds(
      [&entered] {
        RequestGate gate;
        volatile LONG inside = 0;
        const auto use = [&] {
          for (int i = 0; i < 6; ++i) {
            const GateHold hold(gate);
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
