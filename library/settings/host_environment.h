#pragma once

#include <filesystem>

#include "library/settings/run_settings.h"

namespace lidcam::app {

/// A command's messages in addition to its own output.
struct Verbosity {
  bool IsQuiet = false;
  bool ShowsTrace = false;  ///< canonical trace lines, on standard error
  bool ShowsDebug = false;  ///< the driver's debug output with time and thread, on standard error
};

/// Which set files the driver finds.
enum class SetFiles {
  OfSimulatedCameras,  ///< those built into this program
  OfHardware,          ///< those that the user put into place
  OfPluggedCameras,    ///< those, for a camera whose settings are kept
};

/// Connects the driver's platform to this machine: settings, set files and messages.
///
/// The folder is the environment's LIDCAM_HOME, else lidcam/ in the user's data folder. It holds
/// the registry (registry.reg) and two trees that stand for \SystemRoot: system-root/ with the set
/// files that came with hardware, which are never written to, and simulated-root/ with those of the
/// simulated cameras, which are kept up to date; the environment's LIDCAM_SYSTEM_ROOT names another
/// tree for these and for cameras that are plugged in, to try a set file on them. The driver's stills go to the
/// tree in use. Recordings begin with the default settings.
/// Throws CommandError.
///
/// @return the settings of this run: the driver's changes of them are lost with it, unless they are
///         stored
RunSettings OpenHostEnvironment(const Verbosity& verbosity, SetFiles setFiles);

/// The part of OpenHostEnvironment() that is about files: the tree that \SystemRoot stands for, in which the
/// driver finds set files when a camera starts and writes stills.
void UseSystemRoot(SetFiles setFiles);

/// The user's settings for such cameras; empty for recordings, which begin with the default ones. Throws
/// CommandError.
[[nodiscard]] std::filesystem::path SettingsFileFor(SetFiles setFiles);

/// The folder; created when missing. Throws CommandError.
[[nodiscard]] std::filesystem::path HomeFolder();

/// The file in it that holds the user's settings. Throws CommandError.
[[nodiscard]] std::filesystem::path SettingsFile();

/// Sends trace lines to standard output instead, for commands whose output is the trace.
void TraceToStandardOutput();

}  // namespace lidcam::app
