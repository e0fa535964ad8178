#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "library/base/units.h"

namespace lidcam::app {

/// Takes delivered frames one by one.
class FrameWriter {
 public:
  FrameWriter() = default;
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;
  virtual ~FrameWriter() = default;

  /// Writes one frame in YUY2 order, rows top to bottom without padding. Throws CommandError.
  virtual void Write(std::span<const std::uint8_t> yuy2) = 0;

  /// Completes the output: the frames that were written whole stand under its final name from here on,
  /// also after a write that failed. Throws CommandError.
  virtual void Finish() = 0;

  /// Where the frames are, in words for a person.
  [[nodiscard]] virtual std::string Place() const = 0;
};

/// What the name of an output says about its form.
enum class OutputForm { Y4m, RawYuy2, PngSeries };

/// ".y4m" and "-" give Y4M, ".yuy2", ".yuv" and ".raw" raw YUY2, ".png" a PNG series. Throws
/// UsageError for any other ending.
[[nodiscard]] OutputForm FormOfOutput(const std::string& path);

/// Makes the writer for a name. A PNG series numbers its pictures: "shot.png" gives shot-0001.png
/// and so on.
///
/// @param framePeriod  the stream's nominal frame period, for forms that tell it
[[nodiscard]] std::unique_ptr<FrameWriter> MakeFrameWriter(const std::string& path,
                                                           PictureSize size,
                                                           std::chrono::microseconds framePeriod);

}  // namespace lidcam::app
