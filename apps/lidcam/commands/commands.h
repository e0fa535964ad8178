#pragma once

#include <CLI/CLI.hpp>

namespace lidcam::app {

// Each adds one command with its options to the command line. The command runs as the callback of
// its subcommand and throws CommandError or UsageError.

void AddListCommand(CLI::App& app);
void AddFormatsCommand(CLI::App& app);
void AddStreamCommand(CLI::App& app);
void AddStillCommand(CLI::App& app);
void AddRecordCommand(CLI::App& app);
void AddReplayCommand(CLI::App& app);
void AddControlsCommand(CLI::App& app);
void AddGetCommand(CLI::App& app);
void AddSetCommand(CLI::App& app);
void AddResetCommand(CLI::App& app);
void AddRegistersCommand(CLI::App& app);
void AddSetsCommand(CLI::App& app);
void AddPlotCommand(CLI::App& app);
void AddProbeCommand(CLI::App& app);
void AddSimulateCommand(CLI::App& app);
void AddStatusCommand(CLI::App& app);
void AddServeCommand(CLI::App& app);
void AddDoctorCommand(CLI::App& app);
void AddReportCommand(CLI::App& app);
void AddShareCommand(CLI::App& app);
void AddViewCommand(CLI::App& app);

}  // namespace lidcam::app
