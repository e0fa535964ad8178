#include "library/settings/trace_observer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "driver/core/record/camera_context.h"

namespace lidcam::app {
namespace {

TEST(TracePause, KeepsLinesFromAllObserversWhileItLives) {
  std::vector<std::string> lines;
  const TraceObserver observer([&lines](std::string_view line) { lines.emplace_back(line); });
  TraceCamera(nullptr, "one");
  {
    const TracePause pause;
    TraceCamera(nullptr, "two");
  }
  TraceCamera(nullptr, "three");
  EXPECT_THAT(lines, ::testing::ElementsAre("one", "three"));
}

TEST(TraceObserver, AHandlerMayLearnWhoseLineItIs) {
  const auto camera = std::make_unique<CameraContext>();
  std::vector<const CameraContext*> cameras;
  const TraceObserver observer(
      [&cameras](const CameraContext* its, std::string_view) { cameras.push_back(its); });
  TraceCamera(camera.get(), "power on");
  TraceCamera(nullptr, "filter create -> 00000000");
  EXPECT_THAT(cameras, ::testing::ElementsAre(camera.get(), nullptr));
}

}  // namespace
}  // namespace lidcam::app
