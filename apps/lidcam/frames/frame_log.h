#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "apps/lidcam/output/output_file.h"
#include "camera_model/optics/light_schedule.h"
#include "library/frames/frame_row.h"

namespace lidcam::app {

/// First line of a log, without its line end.
inline constexpr std::string_view kFrameLogHeader =
    "frame,time_s,luma,level,index,exposure,coarse_gain,fine_gain,lines,light_state,light_mode,"
    "steps,commits,refused,lux,lux_since_s";

/// One row in the order of the header, without a line end.
[[nodiscard]] std::string ToCsv(const FrameRow& row);

/// A log of a stream as comma separated values: the header, then a row for each delivered frame.
class FrameLog {
 public:
  /// Throws CommandError if the file can't be made.
  /// @param light  of a simulated scene; nothing leaves the column empty
  FrameLog(const std::string& path, std::optional<camera_model::LightSchedule> light);

  /// A stream begins, whose times begin at 0; its light begins anew, too.
  ///
  /// @param start  of this one, behind the first one's; 0 for the first
  void BeginPart(std::chrono::microseconds start) { partStart_ = start; }

  /// Appends a frame's row, with its number and the light of its time. Throws CommandError.
  void Add(FrameRow row);

  /// Completes the file with the rows that were written, which replaces one of that name. Throws
  /// CommandError.
  void Finish() { file_.Commit(); }

 private:
  OutputFile file_;
  std::optional<camera_model::LightSchedule> light_;
  std::chrono::microseconds partStart_{};
  double newest_ = 0;  ///< seconds
  std::uint64_t frames_ = 0;
};

}  // namespace lidcam::app
