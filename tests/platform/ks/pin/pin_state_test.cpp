// A pin's changes of state.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Step = FakePinDriver::Step;

constexpr Step kUpToAcquire{KSSTATE_ACQUIRE, KSSTATE_STOP};
constexpr Step kUpToPause{KSSTATE_PAUSE, KSSTATE_ACQUIRE};
constexpr Step kUpToRun{KSSTATE_RUN, KSSTATE_PAUSE};
constexpr Step kDownToPause{KSSTATE_PAUSE, KSSTATE_RUN};
constexpr Step kDownToAcquire{KSSTATE_ACQUIRE, KSSTATE_PAUSE};
constexpr Step kDownToStop{KSSTATE_STOP, KSSTATE_ACQUIRE};

struct Way {
  KSSTATE From;
  KSSTATE To;
  std::vector<Step> Steps;
};

const Way kWays[] = {
    {KSSTATE_STOP, KSSTATE_STOP, {}},
    {KSSTATE_STOP, KSSTATE_ACQUIRE, {kUpToAcquire}},
    {KSSTATE_STOP, KSSTATE_PAUSE, {kUpToAcquire, kUpToPause}},
    {KSSTATE_STOP, KSSTATE_RUN, {kUpToAcquire, kUpToPause, kUpToRun}},
    {KSSTATE_ACQUIRE, KSSTATE_STOP, {kDownToStop}},
    {KSSTATE_ACQUIRE, KSSTATE_ACQUIRE, {}},
    {KSSTATE_ACQUIRE, KSSTATE_PAUSE, {kUpToPause}},
    {KSSTATE_ACQUIRE, KSSTATE_RUN, {kUpToPause, kUpToRun}},
    {KSSTATE_PAUSE, KSSTATE_STOP, {kDownToAcquire, kDownToStop}},
    {KSSTATE_PAUSE, KSSTATE_ACQUIRE, {kDownToAcquire}},
    {KSSTATE_PAUSE, KSSTATE_PAUSE, {}},
    {KSSTATE_PAUSE, KSSTATE_RUN, {kUpToRun}},
    {KSSTATE_RUN, KSSTATE_STOP, {kDownToPause, kDownToAcquire, kDownToStop}},
    {KSSTATE_RUN, KSSTATE_ACQUIRE, {kDownToPause, kDownToAcquire}},
    {KSSTATE_RUN, KSSTATE_PAUSE, {kDownToPause}},
    {KSSTATE_RUN, KSSTATE_RUN, {}},
};

class PinStateWay : public testing::TestWithParam<Way> {};

TEST_P(PinStateWay, IsGoneOneStepAtATime) {
  WithPin([](PinWorld& world) {
    ASSERT_EQ(world.SetState(GetParam().From), STATUS_SUCCESS);
    world.Driver.Steps.clear();
    EXPECT_EQ(world.SetState(GetParam().To), STATUS_SUCCESS);
    EXPECT_EQ(world.Driver.Steps, GetParam().Steps);
    EXPECT_EQ(world.Pin().DeviceState, GetParam().To);
    EXPECT_EQ(world.Pin().ClientState, GetParam().To);
  });
}

INSTANTIATE_TEST_SUITE_P(All, PinStateWay, testing::ValuesIn(kWays), [](const auto& each) {
  return "From" + std::to_string(each.param.From) + "To" + std::to_string(each.param.To);
});

TEST(PinState, RefusedAcquireIsUndoneAtOnce) {
  WithPin([](PinWorld& world) {
    world.Driver.OnStep = [](KSSTATE to, KSSTATE) {
      return to == KSSTATE_ACQUIRE ? STATUS_SHARING_VIOLATION : STATUS_SUCCESS;
    };
    EXPECT_EQ(world.SetState(KSSTATE_RUN), STATUS_SHARING_VIOLATION);
    EXPECT_THAT(world.Driver.Steps, ElementsAre(kUpToAcquire, kDownToStop));
    EXPECT_EQ(world.Pin().DeviceState, KSSTATE_STOP);
    world.Driver.OnStep = nullptr;
    EXPECT_EQ(world.SetState(KSSTATE_ACQUIRE), STATUS_SUCCESS);
  });
}

TEST(PinState, RefusedPauseOrRunLeavesThePinWhereItIs) {
  for (const KSSTATE refused : {KSSTATE_PAUSE, KSSTATE_RUN}) {
    WithPin([refused](PinWorld& world) {
      world.Driver.OnStep = [refused](KSSTATE to, KSSTATE from) {
        return to == refused && from < to ? STATUS_UNSUCCESSFUL : STATUS_SUCCESS;
      };
      EXPECT_EQ(world.SetState(KSSTATE_RUN), STATUS_UNSUCCESSFUL);
      EXPECT_EQ(world.Pin().DeviceState, refused - 1);
      EXPECT_EQ(world.Driver.Steps.back(), Step(refused, static_cast<KSSTATE>(refused - 1)));
    });
  }
}

TEST(PinState, WayDownIsGoneWhateverTheDriverSaysAndTheFirstRefusalTold) {
  WithPin([](PinWorld& world) {
    ASSERT_EQ(world.SetState(KSSTATE_RUN), STATUS_SUCCESS);
    world.Driver.Steps.clear();
    world.Driver.OnStep = [](KSSTATE to, KSSTATE) {
      return to == KSSTATE_PAUSE ? STATUS_DEVICE_DATA_ERROR : STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(world.SetState(KSSTATE_STOP), STATUS_DEVICE_DATA_ERROR);
    EXPECT_THAT(world.Driver.Steps, ElementsAre(kDownToPause, kDownToAcquire, kDownToStop));
    EXPECT_EQ(world.Pin().DeviceState, KSSTATE_STOP);
  });
}

TEST(PinState, NumberBeyondRunIsNoState) {
  WithPin([](PinWorld& world) {
    EXPECT_EQ(world.SetStateNumber(4), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(world.SetStateNumber(0xFFFFFFFF), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(world.Driver.Steps, IsEmpty());
  });
}

TEST(PinState, DriverSeesTheOldStateAndHoldsTheControlDuringAStep) {
  WithPin([](PinWorld& world) {
    std::vector<KSSTATE> seen;
    bool isControlHeld = true;
    world.Driver.OnStep = [&](KSSTATE, KSSTATE) {
      seen.push_back(world.Pin().DeviceState);
      isControlHeld =
          isControlHeld && world.Filter.Control.Mutex.OwnerThread == KeGetCurrentThread();
      EXPECT_NE(world.Device->Mutex().OwnerThread, KeGetCurrentThread());
      return STATUS_SUCCESS;
    };
    world.SetState(KSSTATE_RUN);
    world.Driver.OnStep = nullptr;
    EXPECT_THAT(seen, ElementsAre(KSSTATE_STOP, KSSTATE_ACQUIRE, KSSTATE_PAUSE));
    EXPECT_TRUE(isControlHeld);
  });
}

}  // namespace
}  // namespace lidcam::host
