#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>

#include "apps/lidcam/camera_stream.h"
#include "apps/lidcam/commands/common_options.h"
#include "apps/lidcam/control_table.h"
#include "apps/lidcam/frame_log.h"
#include "apps/lidcam/frame_path.h"
#include "apps/lidcam/output/frame_writer.h"

namespace lidcam::app {

/// What a run of a stream came to.
struct StreamResult {
  StreamCounts Counts;
  PictureSize Size;
  PictureSize RawSize;       ///< of the frames that the camera sent for it
  std::string Identity;      ///< empty if the capture does not tell
  std::string Sensor;        ///< empty if the capture does not tell
  std::string Place;         ///< where the frames are; empty without an output
  std::string Faults;        ///< what was carried out of a fault script; empty without one
  bool IsUnplugged = false;  ///< the camera was gone before the end
  /// Processor time of the whole process while the stream ran; told for streams in real time only.
  std::optional<double> ProcessorSeconds;
};

/// Streams from the camera until a limit, an interrupt or the end of a capture, writing frames if
/// there is a writer, and a row for each frame if there is a log. Frames beyond the limit are in
/// neither. A camera that is unplugged ends the stream, and the result tells. Within a world of the
/// bus's time.
///
/// @param controls  set before the first frame, in this order
/// @param log       may be null
[[nodiscard]] StreamResult RunStream(bus::UsbBus& bus, const StreamSize& size,
                                     const StreamLimits& limits,
                                     std::span<const ControlAssignment> controls,
                                     FrameWriter* writer, const Verbosity& verbosity,
                                     FrameLog* log = nullptr);

/// Gives a writer the frames up to a limit. Without a writer, or beyond the limit, frames go by.
class LimitedWriter {
 public:
  LimitedWriter(FrameWriter* writer, const StreamLimits& limits)
      : writer_(writer), frames_(limits.Frames) {}

  void Write(std::span<const std::uint8_t> yuy2);

 private:
  FrameWriter* writer_;
  std::optional<std::uint64_t> frames_;
  std::uint64_t written_ = 0;
};

/// "86 frames delivered, 29.97 a second; none lost, 2 of a wrong size".
[[nodiscard]] std::string ToText(const StreamCounts& counts);

/// Prints the summary: one line for a person on standard error, or JSON on standard output.
void PrintSummary(const StreamResult& result, const CommonOptions& options);

/// Throws CommandError for a stream that ended because its camera was gone. What it gave until then is
/// kept: the output is complete.
void RequirePluggedIn(const StreamResult& result);

/// Completes a stream's output and notes its place in the result. Throws CommandError, with nothing
/// left under the output's name, if the stream gave no frame.
///
/// @param writer  may be null
/// @param from    names the source in the error
void FinishOutput(StreamResult& result, FrameWriter* writer, const std::string& from);

}  // namespace lidcam::app
