#pragma once

#include <istream>
#include <string>
#include <vector>

#include "apps/lidcam/frames/frame_log.h"

namespace lidcam::app {

/// Reads the rows of a frame log.
///
/// @param name  names the log in errors
/// Throws CommandError, naming the line, for a log without rows, a foreign header, a row with too
/// few or too many fields, a field that is no value of its column, and frames or times that do not
/// ascend.
[[nodiscard]] std::vector<FrameRow> ReadFrameLog(std::istream& input, const std::string& name);

/// Reads a file. Throws CommandError, also if it can't be opened.
[[nodiscard]] std::vector<FrameRow> ReadFrameLog(const std::string& path);

}  // namespace lidcam::app
