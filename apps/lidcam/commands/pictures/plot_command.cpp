#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/output/file_roles.h"
#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/plot/frame_log_reader.h"
#include "apps/lidcam/plot/gnuplot.h"
#include "apps/lidcam/plot/loop_plot.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

struct PlotCommand {
  std::string Log;
  std::string Output;
  std::string Title = "Exposure loop";
};

PlotForm FormOfDrawing(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::ranges::transform(ending, ending.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  if (ending == ".png") return PlotForm::Png;
  std::error_code ignored;
  if (path == "-" || ending == ".svg" || std::filesystem::is_other(path, ignored)) {
    return PlotForm::Svg;
  }
  throw UsageError("output '" + path +
                   "' is no file for a drawing: use .svg, .png, or - for SVG on standard output");
}

void Run(const PlotCommand& command) {
  LookAtFiles({{"log", command.Log}}, {{"-o", command.Output}});
  const PlotForm form = FormOfDrawing(command.Output);
  const std::vector<FrameRow> rows = ReadFrameLog(command.Log);
  const std::string drawing = RunGnuplot(LoopPlotScript(rows, command.Title, form));
  OutputFile file(command.Output);
  file.Write(drawing);
  file.Commit();
}

}  // namespace

void AddPlotCommand(CLI::App& app) {
  const auto command = std::make_shared<PlotCommand>();
  CLI::App* const sub =
      app.add_subcommand("plot", "a drawing of what the exposure loop did in a stream");
  sub->add_option("log", command->Log, "CSV of lidcam stream --log")->type_name("FILE")->required();
  sub->add_option("-o,--output", command->Output,
                  "an SVG or PNG file, or - for SVG on standard output")
      ->type_name("FILE")
      ->required();
  sub->add_option("--title", command->Title, "heading of the drawing")
      ->type_name("TEXT")
      ->capture_default_str();
  sub->footer(
      "gnuplot makes the drawing (Debian package gnuplot-nox).\n\n"
      "Example:\n"
      "  lidcam stream --fast --light 300lx@0s,5lx@4s,300lx@12s --duration 20s --log frames.csv\n"
      "  lidcam plot frames.csv -o loop.svg");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
