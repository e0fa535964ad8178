#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "apps/lidcam/frames/frame_log.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/frame_writer.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/streaming/camera_stream.h"
#include "library/frames/replay_pipeline.h"

namespace lidcam::app {

/// The result of a stream's run.
struct StreamResult {
  StreamCounts Counts{};
  PictureSize Size{};
  PictureSize RawSize{};     ///< of the frames that the camera sent for it
  std::string Identity{};    ///< empty if the capture doesn't contain it
  std::string Sensor{};      ///< empty if the capture doesn't contain it
  std::string Place{};       ///< where the frames are; empty without an output
  std::string Note{};        ///< on lines that the sensor sends too few or too many of; or empty
  std::string OutputNote{};  ///< on the output, as FrameWriter::Note() has it
  std::string Faults{};      ///< counts of the injected faults; empty without a script
  /// Frames in the output; nothing where an output holds no frames as such.
  std::optional<std::uint64_t> Written{};
  bool IsUnplugged = false;  ///< the camera was gone before the end
  /// The reasons for which the stream was cut short or its output failed, in order. Each is a
  /// line for the user; if there are none, the stream is complete.
  std::vector<std::string> Troubles{};
  /// Processor time of the whole process while the stream ran; for streams in real time only.
  std::optional<double> ProcessorSeconds{};
};

/// Streams from the camera until a limit, an interrupt or the end of a capture, writing frames if
/// there is a writer, and a row for each frame if there is a log. Frames beyond the limit are in
/// neither. What cuts a stream short that has given frames - a camera that is unplugged or falls silent,
/// an output that takes no more - is told by the result; without a frame it is thrown. Within a world of
/// the bus's time.
///
/// @param controls  set before the first frame, in this order
/// @param log       may be null
/// @param frameInterval  100 ns, that the pin is asked for; nothing: the camera's usual one
/// @param offer     the camera that other processes may reach meanwhile; null for none
[[nodiscard]] StreamResult RunStream(bus::UsbBus& bus, const StreamSize& size,
                                     const StreamLimits& limits,
                                     std::span<const ControlAssignment> controls,
                                     FrameWriter* writer, const Verbosity& verbosity,
                                     FrameLog* log = nullptr,
                                     std::optional<std::int64_t> frameInterval = {},
                                     const CameraChoice* offer = nullptr);

/// Gives a writer the frames up to a limit. Without a writer, or beyond the limit, frames are
/// ignored.
class LimitedWriter {
 public:
  LimitedWriter(FrameWriter* writer, const StreamLimits& limits)
      : writer_(writer), frames_(limits.Frames) {}

  void Write(const OutputFrame& frame);
  [[nodiscard]] std::uint64_t Written() const { return written_; }

 private:
  FrameWriter* writer_;
  std::optional<std::uint64_t> frames_;
  std::uint64_t written_ = 0;
};

/// "86 frames delivered, 29.97 a second; none lost, 2 of a wrong size".
[[nodiscard]] std::string ToText(const StreamCounts& counts);

/// Why a replay delivers other frames than the stream that was recorded; empty if it delivers as many. In real time a busy
/// machine is late: it delivers fewer frames than the recording has, or ends the recording behind another frame.
///
/// @param recorded  frames that a replay delivers
/// @param asked     as many frames as the stream was to have, if it had a limit
[[nodiscard]] std::string DifferenceText(std::uint64_t delivered, std::uint64_t recorded,
                                         std::optional<std::uint64_t> asked);

/// The outputs of a stream's result; each may be missing.
struct StreamOutputs {
  FrameWriter* Writer = nullptr;
  FrameLog* Log = nullptr;
};

/// Completes what a stream gave until its end, whatever ended it: brings frames and log under their
/// names and prints the summary, one line for a person on standard error, or JSON on standard output.
/// Throws CommandError for a stream that gave no frame, of which the log alone is kept, and for one that
/// was cut short.
///
/// @param from  names the source in the error
void ConcludeStream(StreamResult& result, const StreamOutputs& outputs, const std::string& from,
                    const CommonOptions& options);

/// Stores the settings that the stream's run has changed; the result has a trouble if that fails.
void StoreSettings(const RunSettings& settings, StreamResult& result);

/// Notes in the result that the stream's end was requested before its limit.
void NoteInterrupt(StreamResult& result, const StreamLimits& limits);

}  // namespace lidcam::app
