// What the frame thread asks of the pin and the stream, and how it waits and ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <vector>

#include "tests/driver/usb/support/kernel_arguments.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

PKSPIN g_asked = nullptr;
std::uint8_t g_answer = 0;

std::uint8_t AnswerIsProcessing(PKSPIN pin) {
  g_asked = pin;
  return g_answer;
}

constexpr PinOperations kOperations{AnswerIsProcessing, nullptr};

TEST(FrameSink, AsksThePinOfTheStreamWhetherItIsBusy) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Device().Pins = &kOperations;
    const FrameSink& sink = world.Stream().Assembly.Sink;
    for (const std::uint8_t answer : std::to_array<std::uint8_t>({0, 1, 128})) {
      g_asked = nullptr;
      g_answer = answer;
      EXPECT_EQ(sink.IsProcessing(sink.Context), answer);
      EXPECT_EQ(g_asked, &world.Pin);
    }
  });
}

TEST(FrameSink, FindsNoPinBusyBeforeThereIsOne) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Device().Pins = &kOperations;
    g_answer = 1;
    const KernelArguments arguments;
    const FrameSink& sink = world.Stream().Assembly.Sink;
    EXPECT_EQ(sink.IsProcessing(sink.Context), 0);
    sink.WakeConsumer(sink.Context);
    EXPECT_THAT(arguments.ProcessingAttempts, IsEmpty());
  });
}

TEST(FrameSink, PublishesWhereThePinFetches) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    const FrameSink& sink = world.Stream().Assembly.Sink;
    std::uint8_t frame = 0;
    sink.PublishRawFrame(sink.Context, &frame, 77);
    std::uint32_t size = 0;
    EXPECT_EQ(world.Device().GetRawFrame(size), &frame);
    EXPECT_EQ(size, 77U);
    world.Device().PublishRawFrame(nullptr, 0);
  });
}

TEST(FrameSink, TellsWhetherTheStreamRuns) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    const FrameSink& sink = world.Stream().Assembly.Sink;
    EXPECT_EQ(sink.StreamRunning(sink.Context), 0);
    ASSERT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(sink.StreamRunning(sink.Context), 1);
    ASSERT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(sink.StreamRunning(sink.Context), 0);
  });
}

// A pin that processed on the frame thread would hold up the transfers.
TEST(FrameSink, LeavesTheProcessingToAnotherThread) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    const KernelArguments arguments;
    const FrameSink& sink = world.Stream().Assembly.Sink;
    sink.WakeConsumer(sink.Context);
    EXPECT_THAT(arguments.ProcessingAttempts,
                ElementsAre(KernelArguments::ProcessingAttempt{&world.Pin, TRUE}));
  });
}

TEST(FrameThreadCalls, ReleaseOneCountForATransferOneForTheStopAndOneForTheEnd) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    const KernelArguments arguments;
    IsoPipeline& pipeline = *world.Device().Pipeline;
    const auto releasesOf = [&arguments](const KSEMAPHORE& semaphore) {
      std::vector<KernelArguments::SemaphoreRelease> releases;
      std::copy_if(arguments.SemaphoreReleases.begin(), arguments.SemaphoreReleases.end(),
                   std::back_inserter(releases),
                   [&](const auto& release) { return release.Semaphore == &semaphore; });
      return releases;
    };
    const KernelArguments::SemaphoreRelease wake{&pipeline.WakeSemaphore, 0, 1, FALSE};
    const KernelArguments::SemaphoreRelease done{&pipeline.DoneSemaphore, 0, 1, FALSE};
    ASSERT_TRUE(world.Stack.CompleteIso(USBD_STATUS_SUCCESS));
    EXPECT_THAT(releasesOf(pipeline.WakeSemaphore), ElementsAre(wake));
    ASSERT_EQ(world.Device().PauseStream() | world.Device().ReleaseStream(), 0);
    EXPECT_THAT(releasesOf(pipeline.WakeSemaphore), ElementsAre(wake, wake));
    EXPECT_THAT(releasesOf(pipeline.DoneSemaphore), ElementsAre(done));
  });
}

TEST(FrameThreadCalls, WaitForATransferOrTheStopWithoutALimitAndEndInSuccess) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const KernelArguments arguments;
    ASSERT_EQ(world.Acquire(), STATUS_SUCCESS);
    host::Sleep(host::kMillisecond);
    const void* const semaphore = &world.Device().Pipeline->WakeSemaphore;
    ASSERT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    int waits = 0;
    for (const KernelArguments::Wait& wait : arguments.Waits) {
      if (wait.Object != semaphore) continue;
      ++waits;
      EXPECT_EQ(wait.Reason, Executive);
      EXPECT_EQ(wait.Mode, KernelMode);
      EXPECT_EQ(wait.Alertable, FALSE);
      EXPECT_EQ(wait.Timeout, nullptr);
    }
    EXPECT_EQ(waits, 1);
    EXPECT_THAT(arguments.ThreadEnds, ElementsAre(STATUS_SUCCESS));
  });
}

}  // namespace
}  // namespace lidcam::test
