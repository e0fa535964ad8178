// What runs the threads of a simulation: each keeps its stack and its exceptions over all switches.

#include "platform/host/nt/simulation/execution_context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <exception>
#include <string>
#include <vector>

#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;

TEST(ExecutionContext, RunsUntilItSwitchesAndEndsByNamingTheNext) {
  std::vector<std::string> steps;
  ExecutionContext caller;
  ExecutionContext other([&]() -> ExecutionContext& {
    steps.emplace_back("other begins");
    other.SwitchTo(caller);
    steps.emplace_back("other ends");
    return caller;
  });
  steps.emplace_back("caller begins");
  caller.SwitchTo(other);
  steps.emplace_back("caller goes on");
  caller.SwitchTo(other);
  steps.emplace_back("caller ends");
  EXPECT_THAT(steps, ElementsAre("caller begins", "other begins", "caller goes on", "other ends",
                                 "caller ends"));
}

TEST(ExecutionContext, ThatHasEndedGivesItsMemoryBack) {
  ExecutionContext caller;
  for (int i = 0; i < 100; ++i) {
    std::vector<char> kept(1000);
    ExecutionContext ended([&caller, kept]() -> ExecutionContext& { return caller; });
    caller.SwitchTo(ended);
  }
}

// Other threads run at its switch points while it unwinds.
struct SwitchesAtItsEnd {
  ~SwitchesAtItsEnd() {
    const int before = std::uncaught_exceptions();
    for (int i = 0; i < 3; ++i) KeGetCurrentIrql();
    EXPECT_EQ(std::uncaught_exceptions(), before);
  }
};

void ThrowOverASwitch(int number) {
  const SwitchesAtItsEnd end;
  throw number;
}

void HandleNestedExceptions(int number) {
  EXPECT_EQ(std::current_exception(), nullptr);
  try {
    ThrowOverASwitch(number);
  } catch (int outer) {
    KeGetCurrentIrql();
    try {
      ThrowOverASwitch(number + 1);
    } catch (int inner) {
      KeGetCurrentIrql();
      EXPECT_EQ(inner, number + 1);
    }
    EXPECT_EQ(outer, number);
    EXPECT_THROW(std::rethrow_exception(std::current_exception()), int);
    KeGetCurrentIrql();
  }
  EXPECT_EQ(std::uncaught_exceptions(), 0);
}

TEST(Simulation, ThreadsKeepTheirExceptionsOverSwitches) {
  UnderManySeeds([] {
    TestThread first([] {
      for (int i = 0; i < 10; ++i) HandleNestedExceptions(1000 + i);
    });
    TestThread second([] {
      for (int i = 0; i < 10; ++i) HandleNestedExceptions(2000 + i);
    });
    for (int i = 0; i < 10; ++i) HandleNestedExceptions(3000 + i);
  });
}

// Larger than the stack of any thread.
unsigned UseStack(unsigned depth) {
  std::array<volatile unsigned char, 4096> frame{};
  frame[depth % frame.size()] = 1;
  return depth == 0 ? 0 : UseStack(depth - 1) + frame[depth % frame.size()];
}

TEST(SimulationDeathTest, OverflowOfAThreadsStackEndsTheProcess) {
  const auto overflow = [] {
    Simulate({}, [] { TestThread deep([] { EXPECT_NE(UseStack(1U << 20), 0U); }); });
  };
  EXPECT_DEATH(overflow(), "");
}

}  // namespace
}  // namespace lidcam::host
