// The camera as seen by a video application: an installed driver, reached only by requests to
// files.

#include "testbed/installed_testbed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/avstream/properties/property_ids.h"
#include "driver/exposure/auto_exposure.h"
#include "platform/host/client/stream.h"
#include "testbed/worlds.h"
#include "tests/testbed/with_installed_testbed.h"

namespace lidcam::testbed {
namespace {

using client::Camera;
using client::NextFrame;
using client::Stream;

struct Size {
  std::int32_t Width;
  std::int32_t Height;
};

constexpr Size kSizes[] = {{640, 480}, {352, 288}, {320, 240}, {176, 144}, {160, 120}};

TEST(InstalledTestbed, OffersItsFiveSizesOnOnePinInTwoCategories) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    EXPECT_EQ(camera.PinCount(), 1U);
    const std::vector<GUID> categories = camera.Categories();
    ASSERT_EQ(categories.size(), 2U);
    EXPECT_EQ(std::memcmp(&categories[0], &KSCATEGORY_VIDEO, sizeof(GUID)), 0);
    EXPECT_EQ(std::memcmp(&categories[1], &KSCATEGORY_CAPTURE, sizeof(GUID)), 0);
    const std::vector<KS_DATARANGE_VIDEO> ranges = camera.Ranges();
    ASSERT_EQ(ranges.size(), 5U);
    for (std::size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(ranges[i].VideoInfoHeader.bmiHeader.biWidth, kSizes[i].Width);
      EXPECT_EQ(ranges[i].VideoInfoHeader.bmiHeader.biHeight, kSizes[i].Height);
    }
  });
}

TEST(InstalledTestbed, InstallsTheDriverWithFreshVariablesIfNoCameraHadIt) {
  AeIndex = 5;
  WithInstalledTestbed([](InstalledTestbed&) { EXPECT_EQ(AeIndex, 30); });
}

class InstalledTestbedOfSize : public ::testing::TestWithParam<Size> {};

TEST_P(InstalledTestbedOfSize, DeliversTenFramesInTheOrderOfItsClock) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const auto [width, height] = GetParam();
    const auto bytes = static_cast<std::uint32_t>(width * height * 2);
    const Camera camera = Camera::Open(installed.TopDevice());
    const client::VideoFormat format = camera.FormatOf(width, height);
    EXPECT_EQ(format.ImageBytes(), bytes);
    Stream stream(camera, format);
    EXPECT_EQ(stream.Framing().FramingItem[0].Frames, 5U);
    EXPECT_EQ(stream.Framing().FramingItem[0].FramingRange.Range.MinFrameSize, bytes);
    stream.UseClock();
    stream.Run();
    EXPECT_EQ(stream.State(), KSSTATE_RUN);
    LONGLONG last = -1;
    for (int i = 0; i < 10; ++i) {
      const NextFrame next = stream.Next(2 * kSecond);
      ASSERT_EQ(next.Status, STATUS_SUCCESS) << "frame " << i;
      EXPECT_EQ(next.Picture->Bytes().size(), bytes);
      EXPECT_EQ(next.Picture->OptionsFlags(), 0x111U);
      EXPECT_EQ(next.Picture->Duration(), 333333);
      EXPECT_GT(next.Picture->PresentationTime(), last);
      last = next.Picture->PresentationTime();
      const std::set<std::byte> values(next.Picture->Bytes().begin(), next.Picture->Bytes().end());
      EXPECT_GT(values.size(), 10U) << "a picture of one colour";
    }
    EXPECT_GE(stream.DroppedFrames().PictureNumber, 10);
    stream.Stop();
    EXPECT_EQ(stream.State(), KSSTATE_STOP);
    EXPECT_EQ(stream.Queued(), 0U);
  });
}

INSTANTIATE_TEST_SUITE_P(Sizes, InstalledTestbedOfSize, ::testing::ValuesIn(kSizes),
                         [](const auto& size) {
                           return std::to_string(size.param.Width) + "x" +
                                  std::to_string(size.param.Height);
                         });

TEST(InstalledTestbed, WithoutAClockStampsNothing) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    const NextFrame next = stream.Next(2 * kSecond);
    ASSERT_EQ(next.Status, STATUS_SUCCESS);
    EXPECT_EQ(next.Picture->OptionsFlags(), 0x1U);
    EXPECT_EQ(next.Picture->PresentationTime(), 0);
  });
}

TEST(InstalledTestbed, PausedGivesNothingAndRunsOn) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    stream.Pause();
    while (stream.Next(0).Status == STATUS_SUCCESS) {
    }
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
    stream.Run();
    for (int i = 0; i < 8; ++i) EXPECT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
  });
}

TEST(InstalledTestbed, StopsAndRunsAgainWithTheSameBuffers) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(320, 240));
    for (int round = 0; round < 3; ++round) {
      stream.Run();
      for (int i = 0; i < 4; ++i) ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
      stream.Stop();
      EXPECT_EQ(stream.Next(0).Status, STATUS_CANCELLED);
    }
  });
}

TEST(InstalledTestbed, HasOneStreamForAllApplications) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera first = Camera::Open(installed.TopDevice());
    const Camera second = Camera::Open(installed.TopDevice());
    Stream stream(first, first.FormatOf(640, 480));
    Stream other(second, second.FormatOf(320, 240));
    stream.Run();
    EXPECT_EQ(other.SetState(KSSTATE_ACQUIRE), STATUS_SHARING_VIOLATION);
    EXPECT_EQ(other.State(), KSSTATE_STOP);
    stream.Stop();
    other.Run();
    EXPECT_EQ(other.Next(2 * kSecond).Status, STATUS_SUCCESS);
  });
}

TEST(InstalledTestbed, KeepsAnAmplifierLevelAndTellsItsRange) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    const GUID& set = PROPSETID_VIDCAP_VIDEOPROCAMP;
    const client::PropertySupport support =
        camera.Properties().Support(set, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS);
    EXPECT_EQ(support.AccessFlags, 3U);
    ASSERT_TRUE(support.Values && support.Default);
    EXPECT_EQ(*support.Values, (client::PropertySupport::Range{-100, 100, 1}));
    EXPECT_EQ(*support.Default, 0);
    for (const LONG value : {-7, 40}) {
      camera.SetLevel(set, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS,
                      {value, KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL});
      EXPECT_EQ(camera.GetLevel(set, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS).Value, value);
    }
  });
}

TEST(InstalledTestbed, AnswersVideoControlAndItsOwnSetWhileItStreams) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    EXPECT_THAT(camera.FrameIntervals(320, 240),
                ::testing::ElementsAre(1000000, 833333, 666666, 555555, 500000, 400000, 333333));
    EXPECT_THAT(camera.FrameIntervals(640, 480),
                ::testing::ElementsAre(1666666, 1000000, 833333, 666666));
    camera.SetLevel(PROPSETID_CAMERA_PRIVATE, PrivatePropertyMirror, {1});
    EXPECT_EQ(camera.GetLevel(PROPSETID_CAMERA_PRIVATE, PrivatePropertyMirror).Value, 1);
    EXPECT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
  });
}

TEST(InstalledTestbed, RefusesAnUnknownSet) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    LONG value = 0;
    EXPECT_EQ(camera.Properties().Get(KSNAME_Pin, 0, value), STATUS_PROPSET_NOT_FOUND);
    EXPECT_EQ(camera.Properties().Get(KSPROPSETID_Pin, 99, value), STATUS_NOT_FOUND);
  });
}

TEST(InstalledTestbed, PulledWhileItStreamsHandsItsBuffersBackAndClosesLater) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(640, 480));
    stream.Run();
    ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    EXPECT_EQ(installed.SurpriseRemove(), STATUS_SUCCESS);
    NTSTATUS status = STATUS_SUCCESS;
    while (status == STATUS_SUCCESS) status = stream.Next(2 * kSecond).Status;
    EXPECT_EQ(status, STATUS_CANCELLED);
    EXPECT_THROW(static_cast<void>(Camera::Open(installed.TopDevice())), client::ClientError);
  });
}

TEST(InstalledTestbed, RemovedUnderOpenFilesGoesWithTheLastOfThem) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    EXPECT_EQ(installed.SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(installed.Remove(), STATUS_SUCCESS);
    LONG value = 0;
    EXPECT_EQ(camera.Properties().Get(KSPROPSETID_Pin, KSPROPERTY_PIN_CTYPES, value),
              STATUS_DELETE_PENDING);
  });
}

TEST(InstalledTestbed, SleepsAndWakesUnderAStream) {
  WithInstalledTestbed([](InstalledTestbed& installed) {
    const Camera camera = Camera::Open(installed.TopDevice());
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    EXPECT_EQ(installed.PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(installed.Device().DevicePowerState, PowerDeviceD3);
    while (stream.Next(0).Status == STATUS_SUCCESS) {
    }
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
    EXPECT_EQ(installed.PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(installed.Device().DevicePowerState, PowerDeviceD0);
  });
}

TEST(InstalledTestbed, OfOneSeedRunsTheSameSchedule) {
  const auto run = [](std::uint64_t seed) {
    bus::SimulatedBus bus({});
    return RunInVirtualTime({.Seed = seed}, [&bus] {
      InstalledTestbed installed(bus, {});
      ASSERT_EQ(installed.Start(), STATUS_SUCCESS);
      const Camera camera = Camera::Open(installed.TopDevice());
      Stream stream(camera, camera.FormatOf(160, 120));
      stream.Run();
      for (int i = 0; i < 3; ++i) ASSERT_EQ(stream.Next(2 * kSecond).Status, STATUS_SUCCESS);
    });
  };
  EXPECT_EQ(run(7).TraceHash, run(7).TraceHash);
  EXPECT_NE(run(7).TraceHash, run(8).TraceHash);
}

}  // namespace
}  // namespace lidcam::testbed
