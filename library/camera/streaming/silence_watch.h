#pragma once

#include <cstdint>

#include "library/frames/replay_pipeline.h"

namespace lidcam::app {

/// Ends a stream that gives no frames rather than wait for ever.
class SilenceWatch {
 public:
  /// Throws CommandError once no frame has been delivered for 5 s.
  ///
  /// @param seconds  time since the stream ran, whether the bus gives anything or not
  void Check(const StreamCounts& counts, double seconds);

 private:
  std::uint64_t delivered_ = 0;
  double since_ = 0;
};

}  // namespace lidcam::app
