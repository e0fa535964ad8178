#include "library/camera/streaming/silence_watch.h"

#include <string>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

// A camera that is silent this long sends nothing more; the slowest setting takes under a second a
// frame.
constexpr double kLongestSilence = 5;  // seconds

}  // namespace

void SilenceWatch::Check(const StreamCounts& counts, double seconds) {
  if (counts.Delivered() != delivered_) {
    delivered_ = counts.Delivered();
    since_ = seconds;
  }
  if (seconds - since_ < kLongestSilence) return;
  throw CommandError(delivered_ == 0 ? "the camera sent no whole frame in 5 s"
                                     : "the camera sent no whole frame for 5 s after frame " +
                                           std::to_string(delivered_));
}

}  // namespace lidcam::app
