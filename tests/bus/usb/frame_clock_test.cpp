// Bus time from a count of packets and the machine's clock.

#include "bus/usb/frame_clock.h"

#include <gtest/gtest.h>

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;
using Time = FrameClock::Time;

constexpr std::uint32_t kQueued = 512;

TEST(FrameClock, TransfersFollowEachOtherHoweverLateTheyAreReaped) {
  FrameClock clock(Time{}, kQueued);
  EXPECT_EQ(clock.Reap(32, Time{} + 4ms), 0U);
  EXPECT_EQ(clock.Reap(32, Time{} + 40ms), 32U);
  EXPECT_EQ(clock.Reap(32, Time{} + 40ms), 64U);
}

TEST(FrameClock, MicroframesThatWentByWithoutATransferAreCounted) {
  FrameClock clock(Time{}, kQueued);
  clock.Reap(32, Time{} + 4ms);
  // 1004 ms are 8032 microframes: the transfer that ends there began 32 before.
  EXPECT_EQ(clock.Reap(32, Time{} + 1004ms), 8000U);
}

TEST(FrameClock, AFastBusDrawsTheClockAlongWithoutAJump) {
  FrameClock clock(Time{}, kQueued);
  Time time{};
  std::uint64_t expected = 0;
  for (int i = 0; i < 250 * 60; ++i) {
    time += 3998us;  // of 4 ms: 500 in a million
    EXPECT_EQ(clock.Reap(32, time), expected);
    expected += 32;
  }
  const auto ahead = static_cast<std::int64_t>(expected - clock.Now(time));
  EXPECT_LE(std::abs(ahead), 8);
}

TEST(FrameClock, ASlowBusDrawsTheClockAlongWithoutAJump) {
  FrameClock clock(Time{}, kQueued);
  Time time{};
  std::uint64_t expected = 0;
  for (int i = 0; i < 250 * 60; ++i) {
    time += 4002us;
    EXPECT_EQ(clock.Reap(32, time), expected);
    expected += 32;
  }
}

TEST(FrameClock, ARestartBeginsWithThePresentMicroframe) {
  FrameClock clock(Time{}, kQueued);
  clock.Reap(32, Time{} + 4ms);
  clock.Restart(Time{} + 20ms);
  EXPECT_EQ(clock.Reap(32, Time{} + 24ms), 160U);
  EXPECT_EQ(clock.Now(Time{} + 24ms), 192U);
}

}  // namespace
}  // namespace lidcam::bus
