#pragma once

#include "tests/driver/frame/assembly/random_stream.h"

namespace lidcam::test {

/// What the assembly rules make of a recorded stream, worked out from the whole of it: from the
/// places of the start markers, and not packet by packet.
StreamOutcome PredictStream(const RecordedStream& stream);

}  // namespace lidcam::test
