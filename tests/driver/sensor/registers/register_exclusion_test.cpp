// How the application's path and the frame path are excluded from each other's pairs of transfers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/driver/sensor/registers/register_primitives.h"

namespace lidcam::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

constexpr Status kRefused = 1;

std::vector<Primitive> WritesOf(RegisterPath path) {
  std::vector<Primitive> found;
  for (const Primitive& primitive : PrimitivesOf(path)) {
    if (!primitive.IsRead) found.push_back(primitive);
  }
  return found;
}

// --- while the application path holds the bus ---

class FramePathPrimitive : public TestWithParam<Primitive> {};
INSTANTIATE_TEST_SUITE_P(RegisterExclusion, FramePathPrimitive,
                         ValuesIn(PrimitivesOf(RegisterPath::Frame)), PrimitiveName);

TEST_P(FramePathPrimitive, IsRefusedWithNothingSentWhileTheApplicationHoldsTheBus) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.AppRegisterBusy = 1;
  ReadByte() = 0xA5;
  EXPECT_EQ(GetParam().Run(camera), kRefused);
  EXPECT_THAT(space.Packets(), IsEmpty());
  EXPECT_EQ(ReadByte(), 0xA5);
  EXPECT_EQ(camera.DriverRegisterBusy, 0U);
  EXPECT_EQ(camera.AppRegisterBusy, 1U);
}

TEST_P(FramePathPrimitive, IsNotHeldOffByAnotherFramePathAccess) {
  RegisterSpace space;
  space.Context().DriverRegisterBusy = 1;
  EXPECT_EQ(GetParam().Run(space.Context()), 0);
  EXPECT_THAT(space.Packets(), ElementsAreArray(GetParam().Packets));
}

// A batch sets the flag once; its protection lasts until its first primitive has ended.
TEST_P(FramePathPrimitive, ClearsAFlagThatABatchHadRaised) {
  RegisterSpace space;
  space.Context().DriverRegisterBusy = 1;
  GetParam().Run(space.Context());
  EXPECT_EQ(space.Context().DriverRegisterBusy, 0U);
}

TEST(RegisterExclusion, RefusedSensorWriteLeavesTheShadowsAlone) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.SensorType = SensorTypeVGA0708;
  camera.ShadowSensor0C = 0x40;
  camera.AppRegisterBusy = 1;
  EXPECT_EQ(DriverWriteSensorRegister(camera, 0xFF0C, 0x21), kRefused);
  EXPECT_THAT(space.Packets(), IsEmpty());
  EXPECT_EQ(camera.ShadowSensor0C, 0x40);
}

class ApplicationPathPrimitive : public TestWithParam<Primitive> {};
INSTANTIATE_TEST_SUITE_P(RegisterExclusion, ApplicationPathPrimitive,
                         ValuesIn(PrimitivesOf(RegisterPath::Application)), PrimitiveName);

TEST_P(ApplicationPathPrimitive, IsNotHeldOffByAnotherApplicationAccessAndClearsItsFlag) {
  RegisterSpace space;
  space.Context().AppRegisterBusy = 1;
  EXPECT_EQ(GetParam().Run(space.Context()), 0);
  EXPECT_THAT(space.Packets(), ElementsAreArray(GetParam().Packets));
  EXPECT_EQ(space.Context().AppRegisterBusy, 0U);
}

// Arrivals in the middle of a pair, between its select and its data transfer.
TEST_P(ApplicationPathPrimitive, LetsNoFramePathAccessBetweenItsTransfers) {
  for (const Primitive& arrival : PrimitivesOf(RegisterPath::Frame)) {
    RegisterSpace space;
    std::vector<Status> refusals;
    space.OnRequest = [&](const WirePacket&) { refusals.push_back(arrival.Run(space.Context())); };
    EXPECT_EQ(GetParam().Run(space.Context()), 0);
    EXPECT_THAT(refusals, ElementsAreArray({kRefused, kRefused})) << arrival.Name;
    EXPECT_THAT(space.Packets(), ElementsAreArray(GetParam().Packets)) << arrival.Name;
  }
}

class UnguardedPrimitive : public TestWithParam<Primitive> {};
INSTANTIATE_TEST_SUITE_P(RegisterExclusion, UnguardedPrimitive,
                         ValuesIn(PrimitivesOf(RegisterPath::None)), PrimitiveName);

TEST_P(UnguardedPrimitive, LooksAtNeitherFlagAndLeavesBoth) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.AppRegisterBusy = 1;
  camera.DriverRegisterBusy = 1;
  EXPECT_EQ(GetParam().Run(camera), 0);
  EXPECT_THAT(space.Packets(), ElementsAreArray(GetParam().Packets));
  EXPECT_EQ(camera.AppRegisterBusy, 1U);
  EXPECT_EQ(camera.DriverRegisterBusy, 1U);
}

// During such an access no flag is set, so that any access may come between its transfers.
TEST_P(UnguardedPrimitive, DelaysNoOther) {
  for (const Primitive& arrival : AllPrimitives()) {
    RegisterSpace space;
    bool isNested = false;
    Status nested = -1;
    space.OnRequest = [&](const WirePacket&) {
      if (isNested) return;
      isNested = true;
      nested = arrival.Run(space.Context());
    };
    EXPECT_EQ(GetParam().Run(space.Context()), 0);
    EXPECT_EQ(nested, 0) << arrival.Name;
    EXPECT_EQ(space.Packets().size(), GetParam().Packets.size() + arrival.Packets.size());
  }
}

// --- while the frame path holds the bus ---

class ApplicationPathWrite : public TestWithParam<Primitive> {};
INSTANTIATE_TEST_SUITE_P(RegisterExclusion, ApplicationPathWrite,
                         ValuesIn(WritesOf(RegisterPath::Application)), PrimitiveName);

TEST_P(ApplicationPathWrite, SpinsUntilTheFramePathHasEndedAndIsThenSent) {
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.DriverRegisterBusy = 1;
  std::atomic<bool> isDone = false;
  std::thread application([&] {
    GetParam().Run(camera);
    isDone = true;
  });
  std::this_thread::sleep_for(60ms);
  EXPECT_FALSE(isDone);
  EXPECT_EQ(camera.AppRegisterBusy, 0U);
  camera.DriverRegisterBusy = 0;
  application.join();
  EXPECT_THAT(space.Packets(), ElementsAreArray(GetParam().Packets));
}

// Result of an access that met a set DriverRegisterBusy, some time after it was cleared.
enum class Outcome { WentOn, StoppedForGood, Unknown };

constexpr auto kTimeToMeetTheFlag = 200ms;
constexpr auto kTimeThatShowsAStop = 500ms;
constexpr auto kPatience = 20s;

// Runs the access in a process of its own: a thread that spins forever can only be ended with it.
Outcome OutcomeAfterFramePathEnded(const Primitive& primitive, std::chrono::milliseconds limit) {
  constexpr int kWentOn = 10;
  constexpr int kStopped = 11;
  const pid_t child = fork();
  if (child == 0) {
    static RegisterSpace space;
    static std::atomic<bool> isUnderWay = false;
    static std::atomic<bool> isDone = false;
    CameraContext& camera = space.Context();
    camera.DriverRegisterBusy = 1;
    std::thread([&primitive] {
      isUnderWay = true;
      primitive.Run(space.Context());
      isDone = true;
    }).detach();
    while (!isUnderWay) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(kTimeToMeetTheFlag);
    camera.DriverRegisterBusy = 0;
    for (auto waited = 0ms; waited < limit && !isDone; waited += 5ms) {
      std::this_thread::sleep_for(5ms);
    }
    _exit(isDone ? kWentOn : kStopped);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return Outcome::Unknown;
  if (WEXITSTATUS(status) == kWentOn) return Outcome::WentOn;
  return WEXITSTATUS(status) == kStopped ? Outcome::StoppedForGood : Outcome::Unknown;
}

TEST(RegisterExclusion, BridgeReadThatMeetsTheFramePathStopsForGoodThoughTheFlagIsCleared) {
  const Primitive& read = PrimitiveNamed("ReadBridgeRegister");
  Outcome outcome = Outcome::Unknown;
  // On a busy machine a thread may come too late to meet the flag.
  for (int attempt = 0; attempt < 3 && outcome != Outcome::StoppedForGood; ++attempt) {
    outcome = OutcomeAfterFramePathEnded(read, kTimeThatShowsAStop);
  }
  EXPECT_EQ(outcome, Outcome::StoppedForGood);
}

TEST(RegisterExclusion, WritesThatMeetTheFramePathGoOnOnceTheFlagIsCleared) {
  for (const char* const name : {"WriteBridgeRegister", "WriteSensorRegister"}) {
    EXPECT_EQ(OutcomeAfterFramePathEnded(PrimitiveNamed(name), kPatience), Outcome::WentOn) << name;
  }
}

}  // namespace
}  // namespace lidcam::test
