#pragma once

#include <cstdint>
#include <string>

namespace lidcam::app {

/// What the name of an output says about its form.
enum class OutputForm : std::uint8_t {
  Y4m,
  RawYuy2,
  PngSeries,
  JpegSeries,
  Mjpeg,     ///< pictures in JPEG, one after the other
  Avi,       ///< the same in a container
  Matroska,  ///< FFV1, lossless, each frame at its own time
  Mp4,       ///< H.264, each frame at its own time, in fragments
};

/// ".mkv" gives Matroska, ".mp4" MP4, ".avi" AVI, ".mjpeg" and ".mjpg" MJPEG, ".y4m" and "-" Y4M, ".yuy2",
/// ".yuv" and ".raw" raw YUY2, ".png" and ".jpg" (".jpeg") a series of pictures; devices and pipes without
/// such an ending Y4M. Throws UsageError for any other ending.
[[nodiscard]] OutputForm FormOfOutput(const std::string& path);

/// Whether the name stands for numbered pictures.
[[nodiscard]] bool IsSeries(OutputForm form);

/// Whether all frames of the form last equally long when they are played.
[[nodiscard]] bool HasFixedRate(OutputForm form);

/// Whether what is written there can't be played later: a device such as /dev/null keeps nothing. False for files, pipes
/// and "-".
[[nodiscard]] bool IsOutputDevice(const std::string& path);

/// The endings, for messages and help: ".mkv, .mp4, ... or - for Y4M on standard output".
inline constexpr const char* kOutputEndings =
    ".mkv (lossless), .mp4, .avi, .mjpeg, .y4m, .yuy2, .png or .jpg (a numbered series), or - for "
    "Y4M on "
    "standard output";

/// "clip.mkv" and 3 give "clip-0003.mkv".
[[nodiscard]] std::string NumberedName(const std::string& path, std::uint64_t number);

}  // namespace lidcam::app
