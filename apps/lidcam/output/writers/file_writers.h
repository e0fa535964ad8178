#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "apps/lidcam/output/frame_writer.h"
#include "library/base/units.h"

namespace lidcam::app {

// Each makes the writer of a form whose frames stand one after the other in a file of their own bytes. Throws
// CommandError if the file can't be made.

[[nodiscard]] std::unique_ptr<FrameWriter> MakeRawWriter(const std::string& path);

/// @param framePeriod  which the file's header says for all frames
[[nodiscard]] std::unique_ptr<FrameWriter> MakeY4mWriter(const std::string& path, PictureSize size,
                                                         std::chrono::microseconds framePeriod);

[[nodiscard]] std::unique_ptr<FrameWriter> MakeMjpegWriter(const std::string& path,
                                                           PictureSize size);

}  // namespace lidcam::app
