// A delivered picture is one that the camera sent: the pictures of this camera contain their
// number.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "scenarios/camera/stamped_camera.h"
#include "testbed/worlds.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

constexpr int kStamps = 128;

/// The number of which a picture consists; -1 if it isn't uniform.
int StampOf(std::span<const std::byte> picture) {
  const bool isOne = std::ranges::all_of(
      picture, [&picture](std::byte value) { return value == picture.front(); });
  return isOne ? std::to_integer<int>(picture.front()) : -1;
}

struct Case {
  std::int32_t Width;
  std::int32_t Height;
  std::uint32_t Bandwidth;  ///< a low one makes the camera send less, which is enlarged
};

class PictureOrigin : public ::testing::TestWithParam<Case> {};

TEST_P(PictureOrigin, IsOneMomentOfTheSceneAndLaterThanTheOneBefore) {
  const auto [width, height, bandwidth] = GetParam();
  scenarios::StampedCamera stamped({.BandwidthLimit = bandwidth});
  RunOver(stamped, [width = width, height = height](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(width, height));
    stream.UseClock();
    FrameRules rules(static_cast<std::uint32_t>(width * height * 2), 333333, true);
    stream.Run();
    int last = -1;
    for (int i = 0; i < 40; ++i) {
      const client::NextFrame next = stream.Next(kFrameWait);
      ASSERT_EQ(next.Status, STATUS_SUCCESS);
      rules.Take(*next.Picture);
      const int stamp = StampOf(next.Picture->Bytes());
      ASSERT_NE(stamp, -1) << "frame " << i << " is torn, or no picture";
      if (last != -1) {
        const int advance = (stamp - last + kStamps) % kStamps;
        EXPECT_GE(advance, 1) << "frame " << i << " was delivered twice";
        EXPECT_LE(advance, 3) << "frame " << i << " was delivered late";
      }
      last = stamp;
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, PictureOrigin,
                         ::testing::Values(Case{640, 480, 5120}, Case{352, 288, 5120},
                                           Case{320, 240, 5120}, Case{176, 144, 5120},
                                           Case{160, 120, 5120}, Case{640, 480, 1024},
                                           Case{640, 480, 512}),
                         [](const auto& test) {
                           return std::to_string(test.param.Width) + "x" +
                                  std::to_string(test.param.Height) + "Over" +
                                  std::to_string(test.param.Bandwidth) + "BytesAMicroframe";
                         });

// The pin is stalled between fetching a raw frame and reading it, for longer than the camera needs for the next: that
// one waits, or the pin would read a raw frame that is being filled anew.
TEST(PictureOriginOfASlowPin, IsOneMomentOfTheScene) {
  constexpr LONGLONG kStall = 50 * kMillisecond;
  constexpr int kPictures = 20;
  scenarios::StampedCamera stamped({.BandwidthLimit = 5120});
  bool isRunning = false;
  int stalls = 0;
  const host::SimulationOptions options{
      .AtSwitchPoint = [&](const host::SwitchPlace& place) -> LONGLONG {
        // In a running stream the resampler alone allocates, ahead of its first read.
        if (!isRunning || std::string_view(place.Subject.Name) != "ExAllocatePoolWithTag") return 0;
        ++stalls;
        return kStall;
      }};
  testbed::RunInVirtualTime(options, [&] {
    Host host(stamped);
    testbed::RunThenEnd(
        [&] {
          const Camera camera = host.Open();
          Stream stream(camera, camera.FormatOf(352, 288));
          stream.Run();
          isRunning = true;
          int last = -1;
          for (int i = 0; i < kPictures; ++i) {
            const client::NextFrame next = stream.Next(kFrameWait);
            ASSERT_EQ(next.Status, STATUS_SUCCESS);
            const int stamp = StampOf(next.Picture->Bytes());
            ASSERT_NE(stamp, -1) << "frame " << i << " is torn";
            EXPECT_NE(stamp, last) << "frame " << i << " was delivered twice";
            last = stamp;
          }
          isRunning = false;
        },
        [&host] { host.Close(); });
  });
  EXPECT_GE(stalls, kPictures);
}

TEST(PictureOriginOfATornFrame, IsNoticedByThisTest) {
  std::array<std::byte, 8> picture{};
  EXPECT_EQ(StampOf(picture), 0);
  picture[5] = std::byte{1};
  EXPECT_EQ(StampOf(picture), -1);
}

}  // namespace
}  // namespace lidcam::compliance
