#include "viewer/camera/own_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "driver/core/record/camera_context.h"

namespace lidcam::viewer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OwnTraceTest : public testing::Test {
 protected:
  OwnTrace::Handler Keep() {
    return [this](std::string_view line) { lines_.emplace_back(line); };
  }

  const std::unique_ptr<CameraContext> camera_ = std::make_unique<CameraContext>();
  const std::unique_ptr<CameraContext> other_ = std::make_unique<CameraContext>();
  std::vector<std::string> lines_;
};

TEST_F(OwnTraceTest, LinesOfOtherCamerasAndOfNoneAreLeftOut) {
  OwnTrace trace(false, Keep());
  trace.BelongTo(*camera_);
  TraceCamera(camera_.get(), "power on");
  TraceCamera(other_.get(), "power off");
  TraceCamera(nullptr, "pin create -> 00000000");
  TraceCamera(camera_.get(), "stream on");
  EXPECT_THAT(lines_, ElementsAre("power on", "stream on"));
}

TEST_F(OwnTraceTest, TheLinesOfTheOpeningAreToldOnceTheCameraIsOpen) {
  OwnTrace trace(false, Keep());
  TraceCamera(camera_.get(), "sensor type 1");
  TraceCamera(other_.get(), "sensor type 2");
  EXPECT_THAT(lines_, IsEmpty());
  trace.BelongTo(*camera_);
  EXPECT_THAT(lines_, ElementsAre("sensor type 1"));
  TraceCamera(camera_.get(), "power on");
  EXPECT_THAT(lines_, ElementsAre("sensor type 1", "power on"));
}

TEST_F(OwnTraceTest, OfALongOpeningTheLastLinesAreKept) {
  OwnTrace trace(false, Keep());
  for (std::size_t i = 0; i <= OwnTrace::kMostKept; ++i) TraceCamera(camera_.get(), "%zu", i);
  trace.BelongTo(*camera_);
  ASSERT_EQ(lines_.size(), OwnTrace::kMostKept);
  EXPECT_EQ(lines_.front(), "1");
}

TEST_F(OwnTraceTest, EveryLineIsThatOfTheOnlyCamera) {
  const OwnTrace trace(true, Keep());
  TraceCamera(nullptr, "pin create -> 00000000");
  TraceCamera(camera_.get(), "power on");
  EXPECT_THAT(lines_, ElementsAre("pin create -> 00000000", "power on"));
}

}  // namespace
}  // namespace lidcam::viewer
