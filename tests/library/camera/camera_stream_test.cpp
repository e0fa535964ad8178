// Streams of every size over buses of every width.

#include "library/camera/streaming/camera_stream.h"
#include "library/camera/bring_up/virtual_time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/frame/resampler/image_resampler.h"
#include "library/base/command_error.h"
#include "library/settings/host_environment.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/registry/registry.h"

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
    static_cast<void>(host::CloseRegistry());
  }
  ~StreamOverBus() override {
    unsetenv("LIDCAM_HOME");
    fs::remove_all(folder_);
  }

  /// Opens a stream of the default camera and takes its first frame.
  void Open(const StreamSize& size, std::uint32_t bandwidth = kAllBandwidth,
            camera_model::ConfigurationKind configuration = camera_model::ConfigurationKind::Long) {
    bus::SimulatedBusOptions options;
    options.Camera.Configuration = configuration;
    options.BandwidthLimit = bandwidth;
    bus::SimulatedBus bus(options);
    OpenedCamera* opened = nullptr;
    const auto keepFrame = [&](const StreamFrame& frame) {
      frame_.Delivered.assign(frame.Yuy2.begin(), frame.Yuy2.end());
      opened->WithContext([&](const CameraContext& context) {
        const void* const raw = context.LastRawFrame;
        const auto* const bytes = static_cast<const std::uint8_t*>(raw);
        frame_.RawPixels.assign(bytes + kHeader, bytes + frame.Report.RawBytes);
      });
    };
    const TraceObserver settings([this](std::string_view line) {
      constexpr std::string_view kSetting = "usb  setting ";
      if (!line.starts_with(kSetting) || !line.ends_with("selected")) return;
      if (const char number = line[kSetting.size()]; number != '0') {
        setting_ = static_cast<std::uint32_t>(number - '0');
      }
    });
    RunInVirtualTime([&] {
      WithStream(bus, {.Size = size, .Frames = keepFrame}, [&](CameraStream& stream) {
        opened = &stream.Opened();
        raw_ = stream.RawSize();
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
    Open({size}, kAllBandwidth, camera_model::ConfigurationKind::Short);
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

/// Streams of the default camera, frame by frame.
class StreamFromTopToBottom : public StreamOverBus {
 protected:
  /// Advances until `isEnough`, or until the stream has no more.
  StreamCounts Run(bus::UsbBus& bus, const std::function<bool(CameraStream&)>& isEnough) {
    StreamCounts counts;
    const auto keep = [this](const StreamFrame& frame) {
      positions_.push_back(frame.Position);
      rows_.push_back(frame.Report.Loop);
    };
    RunInVirtualTime([&] {
      const auto controls = ParseAssignments({"AutoExposure=1"});
      const StreamSetup setup{.Size = {{160, 120}}, .Controls = controls, .Frames = keep};
      WithStream(bus, setup, [&](CameraStream& stream) {
        while (!isEnough(stream) && stream.Advance()) {
        }
        counts = stream.Counts();
        progress_ = stream.Progress();
      });
    });
    return counts;
  }

  std::vector<FramePosition> positions_;
  std::vector<FrameRow> rows_;
  StreamProgress progress_;
};

TEST_F(StreamFromTopToBottom, ComesInTheOrderOfItsHeadersWhichTheProgressShows) {
  bus::SimulatedBus bus({});
  const StreamCounts counts =
      Run(bus, [](CameraStream& stream) { return stream.Counts().Delivered() >= 10; });
  ASSERT_EQ(positions_.size(), 10U);
  for (std::size_t i = 1; i < positions_.size(); ++i) {
    EXPECT_EQ(positions_[i].PictureNumber, positions_[i - 1].PictureNumber + 1);
    EXPECT_GT(positions_[i].PresentationTime, positions_[i - 1].PresentationTime);
    EXPECT_GT(rows_[i].Seconds, rows_[i - 1].Seconds);
  }
  EXPECT_EQ(counts.Good, 10U);
  EXPECT_EQ(counts.Lost, 0U);
  EXPECT_EQ(counts.StartUp, 3U) << "one is for the settling, and the pin skips two";
  ASSERT_TRUE(counts.Rate().has_value());
  EXPECT_NEAR(*counts.Rate(), 30, 0.1);
  EXPECT_EQ(progress_.Position, positions_.back());
  EXPECT_EQ(progress_.IsAutoExposure, true);
  EXPECT_GT(rows_.back().Luma, 0U);
}

TEST_F(StreamFromTopToBottom, OfAnUnpluggedCameraKeepsWhatCameAndEnds) {
  bus::SimulatedBus bus({});
  bool isUnplugged = false;
  const StreamCounts counts = Run(bus, [&](CameraStream& stream) {
    if (stream.Counts().Delivered() >= 5 && !isUnplugged) {
      isUnplugged = true;
      bus.Unplug();
    }
    return false;
  });
  EXPECT_TRUE(isUnplugged);
  EXPECT_EQ(positions_.front().PictureNumber, positions_.front().DropCount + 2)
      << "the driver counts the two calls that it skips";
  EXPECT_GE(counts.Delivered(), 5U);
  EXPECT_EQ(counts.Delivered(), positions_.size());
}

TEST_F(StreamFromTopToBottom, AHandlersErrorComesOutAndTheWorldIsLeftInOrder) {
  bus::SimulatedBus bus({});
  const auto fail = [](const StreamFrame&) { throw CommandError("no room for this frame"); };
  EXPECT_THROW(RunInVirtualTime([&] {
                 WithStream(bus, {.Size = {{160, 120}}, .Frames = fail}, [](CameraStream& stream) {
                   while (stream.Advance()) {
                   }
                 });
               }),
               CommandError);
}

}  // namespace
}  // namespace lidcam::app
