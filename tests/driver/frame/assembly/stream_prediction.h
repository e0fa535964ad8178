#pragma once

#include "tests/driver/frame/assembly/random_stream.h"

namespace lidcam::test {

/// The result of the assembly rules for a recorded stream, computed from the whole of it: from the
/// places of the start markers, and not packet by packet.
StreamOutcome PredictStream(const RecordedStream& stream);

}  // namespace lidcam::test
