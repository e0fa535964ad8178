#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/output/file_roles.h"
#include "library/base/units.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/source/camera_lock.h"
#include "library/camera/source/camera_source.h"
#include "library/settings/host_environment.h"
#include "library/settings/stream_size.h"

namespace lidcam::app {

/// Options that mean the same in every command that has them.
struct CommonOptions {
  CameraChoice Camera;
  bool IsCameraNamed = false;  ///< by --camera or by the environment
  bool IsPortNamed = false;    ///< the user has named the port: no camera at another one is used
  Verbosity Output;
  bool IsJson = false;
  bool Waits = false;  ///< for a camera that another process has

  [[nodiscard]] LockPatience Patience() const { return {Waits, Output.IsQuiet}; }
};

/// Adds --camera and --device.
void AddCameraOptions(CLI::App& command, CommonOptions& options);

/// Settles which camera the command works on: the one that is named; else one that is plugged in; else the
/// simulated one, as also where --fast, --light or --mains ask for one. Says on standard error which it is, unless
/// it was named.
///
/// Throws UsageError for --fast with a camera whose time is its own, and as FindPluggedCamera() does.
void ChooseCamera(CommonOptions& options);

/// Adds --wait, for commands that lock their camera.
void AddWaitOption(CLI::App& command, CommonOptions& options);

/// Adds --light and --mains, which light the scene of a simulated camera.
void AddLightOptions(CLI::App& command, CommonOptions& options);

/// Adds --json, --trace, --debug and --quiet.
void AddOutputOptions(CLI::App& command, CommonOptions& options);

/// Adds --driver, by which a camera is installed with the driver of an image.
void AddDriverOption(CLI::App& command);

/// Which sizes a stream has.
struct SizeOptions {
  std::string Size = "640x480";
  std::optional<std::string> RawSize;
};

/// What a command of a camera reads: its camera's files, those of its other options, and the user's
/// settings. Throws UsageError.
[[nodiscard]] std::vector<InputRole> InputsOf(const CommonOptions& options,
                                              const std::vector<InputRole>& others = {});

/// What a command writes: a file, and its answer where that is in JSON.
[[nodiscard]] std::vector<OutputRole> OutputsOf(const CommonOptions& options,
                                                const std::optional<std::string>& output);

/// Adds --size and --raw-size.
void AddSizeOptions(CLI::App& command, SizeOptions& options);

/// Throws UsageError.
[[nodiscard]] StreamSize SizeOf(const SizeOptions& options);

/// How long a stream runs and what it gives.
struct StreamOptions {
  SizeOptions Sizes;
  std::optional<std::uint64_t> Frames;
  std::optional<std::string> Duration;
  std::vector<std::string> Controls;  ///< NAME=VALUE, set once the stream runs
  bool Saves = false;                 ///< what is set outlives the run
};

/// Adds --size, --raw-size, --frames, --duration, --set, --save, --fast and --wait.
void AddStreamOptions(CLI::App& command, CommonOptions& common, StreamOptions& options);

/// When a stream ends, besides by an interrupt.
struct StreamLimits {
  std::optional<std::uint64_t> Frames{};
  std::optional<std::chrono::microseconds> Duration{};  ///< of bus time
  bool ToleratesSilence = false;     ///< a recorded camera may pause; a live one is then gone
  bool ToleratesUnplugging = false;  ///< the caller reports it, or continues after a replug
  bool EndsByItself = false;         ///< a recording: who interrupts it has not seen all of it

  /// Whether an end is foreseen: without one, Ctrl-C is the regular end.
  [[nodiscard]] bool HasEnd() const { return Frames || Duration || EndsByItself; }
};

/// What the parser's own conversion lets pass: it takes "-1" for the highest number.
[[nodiscard]] CLI::Validator WholeNumberFrom(std::uint64_t lowest);

/// Adds --frames.
void AddFrameLimit(CLI::App& command, std::optional<std::uint64_t>& frames);

/// What --set asks for. Throws UsageError.
[[nodiscard]] std::vector<ControlAssignment> ControlsOf(const CommonOptions& common,
                                                        const StreamOptions& options);

/// Throws UsageError.
[[nodiscard]] StreamLimits LimitsOf(const StreamOptions& options);

}  // namespace lidcam::app
