#pragma once

#include <CLI/CLI.hpp>

namespace lidcam::app {

/// Lets all commands take options from the environment, --frame-size as LIDCAM_FRAME_SIZE, and from a file: that of
/// --config, else $XDG_CONFIG_HOME/lidcam/config, if there is one. The command line goes first, then the
/// environment, then the file.
///
/// The file has a line "option = value" for each option: those ahead of the first "[command]" hold for every
/// command that has them. An option or a command that there is not is a UsageError of the parse.
///
/// @param app  with all its commands
void AddConfigurationFile(CLI::App& app);

}  // namespace lidcam::app
