// Streams of every size over buses of every width.

#include "apps/lidcam/hosted_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/host_environment.h"
#include "bus/simulated/simulated_bus.h"
#include "driver/frame/image_resampler.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kAllBandwidth = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kHeader = 64;

/// A frame and the picture it was made of.
struct TakenFrame {
  std::vector<std::uint8_t> Delivered;
  std::vector<std::uint8_t> RawPixels;
};

class StreamOverBus : public ::testing::Test {
 protected:
  StreamOverBus() {
    std::string name = (fs::temp_directory_path() / "lidcam-stream-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    setenv("LIDCAM_HOME", folder_.c_str(), 1);
    OpenHostEnvironment({}, SetFiles::OfSimulatedCameras);
    DetachSettings();
  }
  ~StreamOverBus() override {
    unsetenv("LIDCAM_HOME");
    fs::remove_all(folder_);
  }

  /// Opens a stream of the default camera and takes its first frame.
  void Open(const StreamSize& size, std::uint32_t bandwidth = kAllBandwidth,
            simulator::ConfigurationKind configuration = simulator::ConfigurationKind::Long) {
    bus::SimulatedBusOptions options;
    options.Camera.Configuration = configuration;
    options.BandwidthLimit = bandwidth;
    bus::SimulatedBus bus(options);
    const auto keepFrame = [this](const world::HostedFrame& frame) {
      frame_.Delivered.assign(frame.Yuy2.begin(), frame.Yuy2.end());
      frame_.RawPixels.assign(frame.RawFrame.begin() + kHeader, frame.RawFrame.end());
    };
    RunInVirtualTime([&] {
      WithStream(bus, {.Size = size, .Frames = keepFrame}, [&](HostedStream& stream) {
        raw_ = stream.RawSize();
        setting_ = stream.AlternateSetting();
        while (stream.Counts().Delivered() == 0 && stream.Advance()) {
        }
        good_ = stream.Counts().Good;
      });
    });
  }

  PictureSize raw_;
  std::uint32_t setting_ = 0;
  std::uint64_t good_ = 0;
  TakenFrame frame_;

 private:
  fs::path folder_;
};

struct BandwidthRow {
  std::uint32_t Limit;  ///< bytes a microframe
  std::uint8_t Setting;
  PictureSize Raw;
};

class StreamOverNarrowBus : public StreamOverBus,
                            public ::testing::WithParamInterface<BandwidthRow> {};

TEST_P(StreamOverNarrowBus, TakesTheWidestSettingThatIsGivenAndStretchesItsPicture) {
  const BandwidthRow& row = GetParam();
  Open({{640, 480}}, row.Limit);
  EXPECT_EQ(setting_, row.Setting);
  EXPECT_EQ(raw_, row.Raw);
  EXPECT_EQ(good_, 1u);
  EXPECT_EQ(frame_.Delivered.size(), 614400u);
}

INSTANTIATE_TEST_SUITE_P(
    EachWidth, StreamOverNarrowBus,
    ::testing::Values(BandwidthRow{3072, 7, {640, 480}}, BandwidthRow{3071, 6, {320, 240}},
                      BandwidthRow{2687, 5, {320, 240}}, BandwidthRow{2047, 4, {320, 240}},
                      BandwidthRow{1024, 3, {160, 120}}, BandwidthRow{1023, 2, {160, 120}}));

TEST_F(StreamOverBus, WithRoomForNoPictureIsRefused) {
  EXPECT_THROW(Open({{640, 480}}, 511), CommandError);
  EXPECT_THROW(Open({{640, 480}, PictureSize{320, 240}}, 1024), CommandError);
}

class EverySize : public StreamOverBus,
                  public ::testing::WithParamInterface<std::tuple<PictureSize, PictureSize>> {};

TEST_P(EverySize, IsTheRawPictureScaled) {
  const auto& [raw, delivered] = GetParam();
  if (raw.Width == 640 && delivered.Width <= 320) return;  // this sensor sends 320x240 then
  Open({delivered, raw});
  ASSERT_EQ(good_, 1u);
  EXPECT_EQ(raw_, raw);
  std::vector<std::uint8_t> expected(frame_.RawPixels.begin(),
                                     frame_.RawPixels.begin() + static_cast<long>(raw.Yuy2Bytes()));
  if (delivered != raw) {
    expected.assign(delivered.Yuy2Bytes(), 0);
    ASSERT_EQ(ResampleFrame(expected.data(), frame_.RawPixels.data(), raw.Width, raw.Height,
                            delivered.Width, delivered.Height, 1),
              1u);
  }
  EXPECT_TRUE(frame_.Delivered == expected);
}

INSTANTIATE_TEST_SUITE_P(FromEveryRawSize, EverySize,
                         ::testing::Combine(::testing::ValuesIn(kRawSizes),
                                            ::testing::ValuesIn(kStreamSizes)));

TEST_F(StreamOverBus, NarrowStreamsOfThisSensorAreSentHalvedAtTheWidestSetting) {
  Open({{176, 144}});
  EXPECT_EQ(setting_, 7U);
  EXPECT_EQ(raw_, (PictureSize{320, 240}));
  Open({{352, 288}});
  EXPECT_EQ(setting_, 7U);
  EXPECT_EQ(raw_, (PictureSize{640, 480}));
}

TEST_F(StreamOverBus, TheShortConfigurationServesEverySizeFromItsOnlyOne) {
  for (const PictureSize size : kStreamSizes) {
    Open({size}, kAllBandwidth, simulator::ConfigurationKind::Short);
    EXPECT_EQ(setting_, 3U);
    EXPECT_EQ(raw_, (PictureSize{160, 120}));
    EXPECT_EQ(good_, 1u);
    EXPECT_EQ(frame_.Delivered.size(), size.Yuy2Bytes());
  }
}

// A recording of a 320x240 stream knows nothing of the traffic of a 640x480 one.
TEST_F(StreamOverBus, StartedAsItsRawSizeDeliversItsOwn) {
  Open({.Delivered = {640, 480}, .Raw = PictureSize{320, 240}, .StartsAsRaw = true});
  EXPECT_EQ(setting_, 7U);
  EXPECT_EQ(raw_, (PictureSize{320, 240}));
  EXPECT_EQ(frame_.Delivered.size(), 614400u);
  Open({.Delivered = {160, 120}, .Raw = PictureSize{640, 480}, .StartsAsRaw = true});
  EXPECT_EQ(setting_, 7U);
  EXPECT_EQ(raw_, (PictureSize{640, 480}));
  EXPECT_EQ(frame_.Delivered.size(), 38400u);
}

}  // namespace
}  // namespace lidcam::app
