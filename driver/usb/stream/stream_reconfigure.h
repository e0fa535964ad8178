#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// The camera core's third callback: restarts a running stream with another format. `transport` is a
/// TransportRecord.
///
/// @param swap  0 exchanges width and height of the stream. The pin's own format has them exchanged
///              in every case.
/// @return 0, or -1 if no stream runs or it could not be restarted
_IRQL_requires_max_(PASSIVE_LEVEL)
Status StreamReconfigure(void* transport, std::uint32_t* swap);

}  // namespace lidcam
