#pragma once

#include <cstdint>

#include "driver/core/camera_context.h"

namespace lidcam {

/// Row of the exposure table that is in force. One for the whole system: all cameras share it,
/// unguarded. Every camera creation sets it back to the middle of the table.
extern constinit Shared<std::int32_t> AeIndex;

}  // namespace lidcam
