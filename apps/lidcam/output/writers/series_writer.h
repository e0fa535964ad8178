#pragma once

#include <memory>
#include <string>

#include "apps/lidcam/output/frame_writer.h"
#include "apps/lidcam/output/output_form.h"
#include "library/base/units.h"

namespace lidcam::app {

/// A series of pictures: "shot.png" gives shot-0001.png and so on. Throws CommandError if its folder can't be
/// written to.
///
/// @param form  PngSeries or JpegSeries
[[nodiscard]] std::unique_ptr<FrameWriter> MakeSeriesWriter(const std::string& path,
                                                            PictureSize size, OutputForm form);

/// "clip-0001.mkv", "clip-0001.mkv to clip-0003.mkv", or nothing.
[[nodiscard]] std::string PlaceOfSeries(const std::string& path, std::uint64_t files);

/// Throws CommandError if numbered files of this name can't be made in its folder.
void RequireFolderOf(const std::string& path);

}  // namespace lidcam::app
