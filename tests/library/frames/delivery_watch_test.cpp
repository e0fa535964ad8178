// Data about delivered frames from the driver's trace.

#include "library/frames/delivery_watch.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "driver/frame/raw/raw_frame_parser.h"

namespace lidcam::app {
namespace {

class DeliveryWatchTest : public ::testing::Test {
 protected:
  DeliveryWatchTest() {
    context_->RawFrameSize = 614466;
    context_->AutoExposure = 1;
    context_->LightState = LightStateLowLight;
    rawFrame_[kRawFrameLumaOffset] = 41;
    rawFrame_[kRawFrameLevelOffset] = 7;
    context_->LastRawFrame = rawFrame_.data();
  }

  std::unique_ptr<CameraContext> context_ = std::make_unique<CameraContext>();
  std::array<std::uint8_t, 128> rawFrame_{};
};

TEST_F(DeliveryWatchTest, AReportHasTheRawFramesSizeAndTheLoopOfItsTime) {
  DeliveryWatch watch(*context_, [] { return std::uint64_t{8000}; });
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "exposure index=54 exposure=7 coarse=3 fine=142 lines=1218");
  TraceCamera(context_.get(), "pin frame picture=9 drop=7 bytes=614466");
  rawFrame_[kRawFrameLumaOffset] = 99;
  const auto report = watch.Take(9);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(report->RawBytes, 614466U);
  EXPECT_TRUE(report->IsGood);
  EXPECT_TRUE(report->IsAutoExposure);
  EXPECT_EQ(report->Loop.Luma, 41U);
  EXPECT_EQ(report->Loop.Level, 7U);
  EXPECT_EQ(report->Loop.State, LightStateLowLight);
  EXPECT_EQ(report->Loop.Seconds, 1.0);
  EXPECT_EQ(report->Loop.Events, (ExposureEvents{.Steps = 1, .Commits = 0, .Refused = 0}));
  EXPECT_FALSE(watch.Take(9).has_value()) << "each once";
}

// Ten bytes more or less are the sensor's own affair.
TEST_F(DeliveryWatchTest, AFrameOfAnotherSizeIsBad) {
  DeliveryWatch watch(*context_, [] { return std::uint64_t{0}; });
  constexpr std::array kLines = {
      "pin frame picture=1 drop=0 bytes=614455", "pin frame picture=2 drop=0 bytes=614456",
      "pin frame picture=3 drop=0 bytes=614476", "pin frame picture=4 drop=0 bytes=614477"};
  for (const char* const line : kLines) TraceCamera(context_.get(), "%s", line);
  EXPECT_FALSE(watch.Take(1)->IsGood);
  EXPECT_TRUE(watch.Take(2)->IsGood);
  EXPECT_TRUE(watch.Take(3)->IsGood);
  EXPECT_FALSE(watch.Take(4)->IsGood);
}

TEST_F(DeliveryWatchTest, FramesThatWereNotRequestedAreCountedWithTheNextOne) {
  DeliveryWatch watch(*context_, [] { return std::uint64_t{0}; });
  TraceCamera(context_.get(), "pin frame picture=1 drop=0 bytes=614466");
  TraceCamera(context_.get(), "pin frame picture=2 drop=0 bytes=614466");
  EXPECT_FALSE(watch.Take(3).has_value());
  EXPECT_TRUE(watch.Take(2).has_value());
  EXPECT_FALSE(watch.Take(1).has_value());
}

TEST_F(DeliveryWatchTest, DeliveriesAreCountedAsTheyHappen) {
  std::vector<std::uint64_t> counts;
  DeliveryWatch watch(
      *context_, [] { return std::uint64_t{0}; },
      [&counts](std::uint64_t count) { counts.push_back(count); });
  TraceCamera(context_.get(), "pin frame skipped");
  TraceCamera(context_.get(), "pin frame picture=7 drop=5 bytes=614466");
  EXPECT_EQ(counts, (std::vector<std::uint64_t>{1}));
  TraceCamera(context_.get(), "pin frame picture=8 drop=5 bytes=614466");
  EXPECT_EQ(counts, (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(DeliveryWatchTest, OtherLinesOfThePinAndLinesAfterTheEndAreNoFrames) {
  DeliveryWatch watch(*context_, [] { return std::uint64_t{0}; });
  TraceCamera(context_.get(), "pin frame skipped");
  TraceCamera(context_.get(), "pin frame none");
  TraceCamera(context_.get(), "pin frame no buffer");
  watch.End();
  TraceCamera(context_.get(), "pin frame picture=0 drop=0 bytes=614466");
  EXPECT_FALSE(watch.Take(0).has_value());
}

// As of two cameras that stream at once.
TEST_F(DeliveryWatchTest, LinesOfOtherCamerasDontCount) {
  const auto other = std::make_unique<CameraContext>();
  DeliveryWatch watch(*context_, [] { return std::uint64_t{0}; });
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "exposure index=54 exposure=7 coarse=3 fine=142 lines=1218");
  TraceCamera(other.get(), "frame end bytes=38466 expected=38466 good");
  TraceCamera(other.get(), "pin frame picture=1 drop=0 bytes=38466");
  EXPECT_FALSE(watch.Take(1).has_value());
  TraceCamera(context_.get(), "pin frame picture=2 drop=0 bytes=614466");
  const auto report = watch.Take(2);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(report->Loop.Events, (ExposureEvents{.Steps = 1, .Commits = 0, .Refused = 0}));
  EXPECT_EQ(report->Sent, (SentFrames{.Ended = 1, .Settling = 0}));
}

// The first start ends no frame, and of a settling the driver throws two away.
TEST_F(DeliveryWatchTest, AReportTellsWhatTheCameraHadSent) {
  DeliveryWatch watch(*context_, [] { return std::uint64_t{0}; });
  const auto sentAt = [&](std::int64_t picture) { return watch.Take(picture)->Sent; };
  TraceCamera(context_.get(), "frame end bytes=0 expected=614466 settling");
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "frame published bytes=614466");
  TraceCamera(context_.get(), "pin frame picture=1 drop=0 bytes=614466");
  EXPECT_EQ(sentAt(1), (SentFrames{.Ended = 1, .Settling = 0}));
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 settling");
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "frame discarded");
  TraceCamera(context_.get(), "frame end bytes=921666 expected=614466 bad");
  TraceCamera(context_.get(), "frame published bytes=921666");
  TraceCamera(context_.get(), "pin frame picture=2 drop=0 bytes=921666");
  EXPECT_EQ(sentAt(2), (SentFrames{.Ended = 4, .Settling = 2}));
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "frame discarded");
  TraceCamera(context_.get(), "frame end bytes=614466 expected=614466 good");
  TraceCamera(context_.get(), "pin frame picture=3 drop=0 bytes=614466");
  EXPECT_EQ(sentAt(3), (SentFrames{.Ended = 6, .Settling = 2}));
}

}  // namespace
}  // namespace lidcam::app
