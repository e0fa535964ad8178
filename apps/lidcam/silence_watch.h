#pragma once

#include <cstdint>

#include "apps/lidcam/native_stream.h"

namespace lidcam::app {

/// Ends a stream that gives no frames rather than wait for ever.
class SilenceWatch {
 public:
  /// Throws CommandError once no frame has been delivered for 5 s of bus time.
  void Check(const StreamCounts& counts);

 private:
  std::uint64_t delivered_ = 0;
  std::uint64_t since_ = 0;
};

}  // namespace lidcam::app
