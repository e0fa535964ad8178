#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/file_roles.h"
#include "apps/lidcam/output/pipeline/frame_output.h"

namespace lidcam::app {

/// Options of what a command writes of its frames, and how.
struct FrameOutputOptions {
  std::optional<std::string> Output;
  std::uint64_t Skip = 0;
  std::optional<std::string> Every;
  std::optional<std::string> Segment;
  std::optional<std::string> Ring;
  std::optional<double> MotionPercent;
  std::optional<std::string> Timestamps;
  bool IsConstantRate = false;
  bool IsStamped = false;
};

/// Adds -o, --skip, --every, --segment, --timestamps, --constant-rate and --stamp.
void AddFrameOutputOptions(CLI::App& command, FrameOutputOptions& options);

/// Adds --ring and --motion, for streams of cameras.
void AddRingOptions(CLI::App& command, FrameOutputOptions& options);

/// The files that the options name. Throws UsageError.
[[nodiscard]] std::vector<OutputRole> FrameOutputsOf(const CommonOptions& common,
                                                     const FrameOutputOptions& options);

/// The frames of the stream that are needed for what --frames asks for: those that --skip leaves out come first.
/// Throws UsageError for options that exclude each other.
[[nodiscard]] std::optional<std::uint64_t> FramesFor(std::optional<std::uint64_t> frames,
                                                     const FrameOutputOptions& options);

/// Opens the output; none without -o. Throws UsageError, and CommandError as MakeFileWriter() does.
///
/// @param framePeriod  nominal, of the stream
/// @param tellsDate    a stamp has the date: the camera's time is that of this machine
[[nodiscard]] std::unique_ptr<FrameOutput> OpenFrameOutput(const CommonOptions& common,
                                                           const FrameOutputOptions& options,
                                                           PictureSize size,
                                                           std::chrono::microseconds framePeriod,
                                                           bool tellsDate);

}  // namespace lidcam::app
