#include "apps/lidcam/program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "apps/lidcam/base/standard_output.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/completion/completer.h"
#include "apps/lidcam/options/configuration_file.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"

namespace lidcam::app {
namespace {

enum ExitStatus : int { kDone = 0, kFailed = 1, kWrongUse = 2 };

int ReportError(const std::exception& error, ExitStatus status) {
  std::fprintf(stderr, "lidcam: %s\n", error.what());
  return status;
}

std::string ListOf(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "'" : ", '") + word + "'";
  return list;
}

/// The innermost command that the arguments name, and how many arguments name it.
struct NamedCommand {
  const CLI::App* Command;
  std::string Words{};  ///< "registers read"; empty for none
  std::size_t Depth = 0;
};

NamedCommand CommandOf(const CLI::App& app) {
  NamedCommand named{&app};
  while (!named.Command->get_subcommands().empty()) {
    named.Command = named.Command->get_subcommands().front();
    named.Words += (named.Words.empty() ? "" : " ") + named.Command->get_name();
    ++named.Depth;
  }
  return named;
}

std::string NamesOfCommands(const CLI::App& app) {
  std::string list;
  for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
    list += (list.empty() ? "" : ", ") + command->get_name();
  }
  return list;
}

std::string ReasonOf(const CLI::App& app, const NamedCommand& named, const CLI::Error& error,
                     const std::vector<std::string>& arguments) {
  const auto kind = static_cast<CLI::ExitCodes>(error.get_exit_code());
  if (kind == CLI::ExitCodes::ExtrasError) {
    const std::vector<std::string> extras = app.remaining(true);
    const bool hasOption =
        std::ranges::any_of(extras, [](const std::string& word) { return word.starts_with("-"); });
    return std::string("it takes no ") + (hasOption ? "option" : "argument") + " such as " +
           ListOf(extras);
  }
  const std::string commands = NamesOfCommands(*named.Command);
  if (kind == CLI::ExitCodes::RequiredError && !commands.empty()) {
    const bool hasWord = named.Depth < arguments.size();
    return (hasWord ? "there is no command '" + arguments[named.Depth] + "'"
                    : std::string("a command is missing")) +
           ": use one of " + commands;
  }
  // All options with a conversion take numbers.
  constexpr std::string_view kConversion = "Could not convert: ";
  const std::string text = error.what();
  if (text.starts_with(kConversion)) return text.substr(kConversion.size()) + " is no number";
  return text;
}

// The parser's message only has the option: this adds the command.
std::string DescribeWrongUse(const CLI::App& app, const CLI::Error& error,
                             const std::vector<std::string>& arguments) {
  const NamedCommand named = CommandOf(app);
  const std::string gap = named.Words.empty() ? "" : " ";
  return "lidcam: " + named.Words + (named.Words.empty() ? "" : ": ") +
         ReasonOf(app, named, error, arguments) + " (lidcam " + named.Words + gap +
         "--help tells more)\n";
}

// What the shells' completion scripts call with the words of a line. It isn't a command: its arguments are words
// of others, whole or in part, which the parser must not see.
bool IsCompletion(const std::vector<std::string>& arguments) {
  return !arguments.empty() && arguments.front() == "__complete";
}

int PrintCompletion(const CLI::App& app, const std::vector<std::string>& arguments) {
  const auto words = std::span(arguments).subspan(1);
  std::fputs(ToText(CompletionOf(app, words)).c_str(), stdout);
  RequireStandardOutput();
  return kDone;
}

int Run(int argc, char** argv) {
  CLI::App app(
      "The driver of a USB 2.0 notebook camera, in user mode over a simulated camera or a "
      "recorded capture.",
      "lidcam");
  app.require_subcommand(1);
  app.set_version_flag("--version", "lidcam " LIDCAM_VERSION, "print the version and end");
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  app.failure_message([&](const CLI::App*, const CLI::Error& error) {
    return DescribeWrongUse(app, error, arguments);
  });
  AddListCommand(app);
  AddFormatsCommand(app);
  AddStreamCommand(app);
  AddStillCommand(app);
  AddRecordCommand(app);
  AddReplayCommand(app);
  AddControlsCommand(app);
  AddGetCommand(app);
  AddSetCommand(app);
  AddResetCommand(app);
  AddRegistersCommand(app);
  AddSetsCommand(app);
  AddPlotCommand(app);
  AddProbeCommand(app);
  AddSimulateCommand(app);
  AddStatusCommand(app);
  AddServeCommand(app);
  AddDoctorCommand(app);
  AddReportCommand(app);
  AddShareCommand(app);
  AddViewCommand(app);
  AddConfigurationFile(app);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong use.");
  app.get_formatter()->column_width(32);
  if (IsCompletion(arguments)) return PrintCompletion(app, arguments);
  int status = kDone;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    status = app.exit(error) == 0 ? kDone : kWrongUse;
  }
  if (status == kDone) RequireStandardOutput();
  return status;
}

}  // namespace

int RunProgram(int argc, char** argv) {
  KeepStandardStreamsApart();
  WatchForInterrupt();
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    return ReportError(error, kWrongUse);
  } catch (const std::exception& error) {
    return ReportError(error, kFailed);
  }
}

}  // namespace lidcam::app
