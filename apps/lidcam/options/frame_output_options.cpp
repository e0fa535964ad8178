#include "apps/lidcam/options/frame_output_options.h"

#include <cstdio>

#include "apps/lidcam/output/output_form.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

// A second of 640x480 takes 18 MB of memory.
constexpr std::chrono::minutes kLongestRing{1};

std::optional<std::chrono::microseconds> TimeOf(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return ParseDuration(*text);
}

bool HasSeveralFiles(const FrameOutputOptions& options) {
  return options.Segment || options.Ring;
}

// What is asked of an output needs one.
void RequireOutput(const FrameOutputOptions& options) {
  if (options.Output) return;
  const std::pair<bool, const char*> asked[] = {
      {options.Skip > 0, "--skip"},
      {options.Every.has_value(), "--every"},
      {options.Segment.has_value(), "--segment"},
      {options.Ring.has_value(), "--ring"},
      {options.Timestamps.has_value(), "--timestamps"},
      {options.IsConstantRate, "--constant-rate"},
      {options.IsStamped, "--stamp"},
  };
  for (const auto& [isAsked, name] : asked) {
    if (isAsked) throw UsageError(std::string(name) + " is for an output: name one with -o");
  }
}

void RequireFileOf(const FrameOutputOptions& options) {
  if (!HasSeveralFiles(options)) return;
  const char* const option = options.Segment ? "--segment" : "--ring";
  if (options.Segment && options.Ring) {
    throw UsageError("--segment and --ring exclude each other: use one of them");
  }
  if (options.Output == "-") {
    throw UsageError(std::string(option) + " makes several files: standard output is one");
  }
  if (options.Segment && IsSeries(FormOfOutput(*options.Output))) {
    throw UsageError("--segment cuts films: output '" + *options.Output +
                     "' is a series of pictures");
  }
  if (options.Timestamps == "-") {
    throw UsageError(std::string(option) +
                     " makes several files of timestamps: standard output is one");
  }
}

}  // namespace

void AddFrameOutputOptions(CLI::App& command, FrameOutputOptions& options) {
  command.add_option("-o,--output", options.Output, kOutputEndings)->type_name("FILE");
  command.add_option("--skip", options.Skip, "leave the first frames out")
      ->check(WholeNumberFrom(0))
      ->type_name("N");
  command.add_option("--every", options.Every, "write one frame in this time, such as 10s")
      ->type_name("TIME");
  command
      .add_option("--segment", options.Segment,
                  "begin another file, clip-0001.mkv and so on, after this time, such as 10min")
      ->type_name("TIME");
  command
      .add_option("--timestamps", options.Timestamps,
                  "write the time of each frame, in Matroska's text format")
      ->type_name("FILE");
  command.add_flag(
      "--constant-rate", options.IsConstantRate,
      "repeat frames, or leave some out, for a film of one rate as long as the stream");
  command.add_flag("--stamp", options.IsStamped, "write time and frame number into the picture");
}

void AddRingOptions(CLI::App& command, FrameOutputOptions& options) {
  CLI::Option* const ring =
      command
          .add_option(
              "--ring", options.Ring,
              "keep the last seconds only, and save them to a file of their own on SIGUSR1, a "
              "frame of a wrong size, an end by a fault, or motion")
          ->type_name("TIME");
  command
      .add_option("--motion", options.MotionPercent,
                  "save the ring when this much of the picture moves")
      ->check(CLI::Range(0.01, 100.0))
      ->type_name("PERCENT")
      ->needs(ring);
}

std::vector<OutputRole> FrameOutputsOf(const CommonOptions& common,
                                       const FrameOutputOptions& options) {
  std::vector<OutputRole> outputs = OutputsOf(common, options.Output);
  if (options.Output) {
    outputs.front().IsSeries = HasSeveralFiles(options) || IsSeries(FormOfOutput(*options.Output));
  }
  if (options.Timestamps) {
    outputs.push_back({"--timestamps", *options.Timestamps, HasSeveralFiles(options)});
  }
  return outputs;
}

std::optional<std::uint64_t> FramesFor(std::optional<std::uint64_t> frames,
                                       const FrameOutputOptions& options) {
  if (!frames) return frames;
  if (options.Every) {
    throw UsageError("--every and --frames exclude each other: use --duration with --every");
  }
  return *frames + options.Skip;
}

std::unique_ptr<FrameOutput> OpenFrameOutput(const CommonOptions& common,
                                             const FrameOutputOptions& options, PictureSize size,
                                             std::chrono::microseconds framePeriod,
                                             bool tellsDate) {
  RequireOutput(options);
  if (!options.Output) return nullptr;
  RequireFileOf(options);
  FrameOutputSetup setup{
      .Path = *options.Output,
      .Size = size,
      .FramePeriod = framePeriod,
      .Skip = options.Skip,
      .Every = TimeOf(options.Every),
      .Segment = TimeOf(options.Segment),
      .Ring = TimeOf(options.Ring),
      .MotionPercent = options.MotionPercent,
      .Timestamps = options.Timestamps,
      .IsConstantRate = options.IsConstantRate,
      .IsStamped = options.IsStamped,
      .TellsDate = tellsDate,
      .Tell = {},
  };
  if (setup.Ring && *setup.Ring > kLongestRing) {
    throw UsageError("--ring '" + *options.Ring +
                     "' is above a minute, which takes 1.1 GB of memory");
  }
  if (!common.Output.IsQuiet) {
    setup.Tell = [](const std::string& line) {
      std::fprintf(stderr, "lidcam: %s\n", line.c_str());
    };
  }
  return std::make_unique<FrameOutput>(setup);
}

}  // namespace lidcam::app
