#pragma once

#include <chrono>
#include <memory>

#include "apps/lidcam/output/byte_output.h"
#include "apps/lidcam/output/frame_writer.h"
#include "apps/lidcam/output/output_form.h"
#include "library/base/units.h"

namespace lidcam::app {

/// Makes the writer of a film: Matroska with FFV1, MP4 with H.264 in fragments, or AVI with JPEG. Throws
/// CommandError.
///
/// @param framePeriod  of an AVI, which says it for all frames
[[nodiscard]] std::unique_ptr<FrameWriter> MakeFilmWriter(std::unique_ptr<ByteOutput> file,
                                                          PictureSize size, OutputForm form,
                                                          std::chrono::microseconds framePeriod);

/// The module's function that does so; the result is the caller's.
inline constexpr const char* kMakeFilmWriter = "lidcam_make_film_writer";
using MakeFilmWriterFunction = FrameWriter*(std::unique_ptr<ByteOutput>& file, PictureSize size,
                                            OutputForm form, std::chrono::microseconds framePeriod);

}  // namespace lidcam::app
