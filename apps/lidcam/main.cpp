#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/interrupt.h"

namespace {

enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUse = 2 };

int ReportError(const std::exception& error, ExitStatus status) {
  std::fprintf(stderr, "lidcam: %s\n", error.what());
  return status;
}

int Run(int argc, char** argv) {
  CLI::App app(
      "The driver of a USB 2.0 notebook camera, in user mode over a simulated camera or a "
      "recorded capture.",
      "lidcam");
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return "lidcam: " + std::string(error.what()) + " (--help tells more)\n";
  });
  lidcam::app::AddListCommand(app);
  lidcam::app::AddStreamCommand(app);
  lidcam::app::AddStillCommand(app);
  lidcam::app::AddRecordCommand(app);
  lidcam::app::AddReplayCommand(app);
  lidcam::app::AddControlsCommand(app);
  lidcam::app::AddGetCommand(app);
  lidcam::app::AddSetCommand(app);
  lidcam::app::AddRegistersCommand(app);
  lidcam::app::AddSetsCommand(app);
  lidcam::app::AddPlotCommand(app);
  lidcam::app::AddSimulateCommand(app);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong use.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUse;
  }
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  lidcam::app::WatchForInterrupt();
  try {
    return Run(argc, argv);
  } catch (const lidcam::app::UsageError& error) {
    return ReportError(error, kWrongUse);
  } catch (const std::exception& error) {
    return ReportError(error, kFailed);
  }
}
