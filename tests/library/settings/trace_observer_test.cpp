#include "library/settings/trace_observer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/core/base/camera_trace.h"

namespace lidcam::app {
namespace {

TEST(TracePause, KeepsLinesFromAllObserversWhileItLives) {
  std::vector<std::string> lines;
  const TraceObserver observer([&lines](std::string_view line) { lines.emplace_back(line); });
  TraceCamera("one");
  {
    const TracePause pause;
    TraceCamera("two");
  }
  TraceCamera("three");
  EXPECT_THAT(lines, ::testing::ElementsAre("one", "three"));
}

}  // namespace
}  // namespace lidcam::app
