#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/output/file_roles.h"
#include "library/base/command_error.h"
#include "library/register_sets/set_checker.h"
#include "library/register_sets/set_disassembler.h"
#include "library/register_sets/set_files.h"
#include "library/register_sets/set_layout.h"

namespace lidcam::app {
namespace {

struct SetsCommand {
  std::vector<std::string> Files;
  std::string Output;
};

std::vector<std::uint8_t> ReadOrFail(const std::string& path) {
  std::string error;
  const auto bytes = ReadSetFile(path, error);
  if (!bytes) throw CommandError(error);
  return *bytes;
}

void Compile(const SetsCommand& command) {
  const std::filesystem::path source(command.Files.front());
  const std::filesystem::path target = command.Output.empty()
                                           ? std::filesystem::path(source).replace_extension(".set")
                                           : std::filesystem::path(command.Output);
  LookAtFiles({{"source", source.string()}}, {{"-o", target.string()}});
  const std::vector<std::string> errors = CompileRegisterSetFile(source, target);
  // The last one ends the command; a source with several mistakes shows them all.
  for (std::size_t i = 0; i + 1 < errors.size(); ++i) {
    std::fprintf(stderr, "lidcam: %s\n", errors[i].c_str());
  }
  if (!errors.empty()) throw CommandError(errors.back());
}

// A damaged set file shows what can be read of it, and its faults in comments; any other file shows nothing.
void RequireSetFile(const std::string& path, std::span<const std::uint8_t> file) {
  const SetLayout layout = ReadSetLayout(file);
  if (!layout.Sections.empty()) return;
  for (const SetFinding& finding : layout.Findings) {
    if (finding.Kind != SetFinding::Weight::Fault) continue;
    throw CommandError(path + ": this is no register set file: " + finding.Text);
  }
}

void Show(const SetsCommand& command) {
  const std::vector<std::uint8_t> file = ReadOrFail(command.Files.front());
  RequireSetFile(command.Files.front(), file);
  const std::string text = DisassembleRegisterSet(file);
  std::fputs(text.c_str(), stdout);
}

void Check(const SetsCommand& command) {
  std::size_t faults = 0;
  for (const std::string& path : command.Files) {
    const std::vector<SetFinding> findings = CheckRegisterSet(ReadOrFail(path));
    std::size_t faultsHere = 0;
    for (const SetFinding& finding : findings) {
      std::printf("%s\n", FindingText(path, finding).c_str());
      if (finding.Kind == SetFinding::Weight::Fault) ++faultsHere;
    }
    if (faultsHere == 0) std::printf("%s: sound\n", path.c_str());
    faults += faultsHere;
  }
  if (faults > 0) {
    throw CommandError(std::to_string(faults) + (faults == 1 ? " fault" : " faults") + " found");
  }
}

}  // namespace

void AddSetsCommand(CLI::App& app) {
  const auto command = std::make_shared<SetsCommand>();
  CLI::App* const sub = app.add_subcommand("sets", "compile, show and check register set files");
  sub->require_subcommand(1);

  CLI::App* const compile = sub->add_subcommand("compile", "a readable source to a set file");
  compile->add_option("source", command->Files, "source file")->required()->expected(1);
  compile->add_option("-o,--output", command->Output, "set file; SOURCE with .set if not given")
      ->type_name("FILE");
  compile->footer("Example:\n  lidcam sets compile camera_model/sets/S001.txt -o S001.set");
  compile->callback([command] { Compile(*command); });

  CLI::App* const show = sub->add_subcommand("show", "a set file as a readable source");
  show->add_option("file", command->Files, "set file")->required()->expected(1);
  show->footer("Example:\n  lidcam sets show S001.set");
  show->callback([command] { Show(*command); });

  CLI::App* const check = sub->add_subcommand("check", "every fault of set files with its offset");
  check->add_option("files", command->Files, "set files")->required();
  check->footer("Example:\n  lidcam sets check S000.set S001.set");
  check->callback([command] { Check(*command); });

  sub->footer(
      "Examples:\n"
      "  lidcam sets compile camera_model/sets/S001.txt -o S001.set\n"
      "  lidcam sets show S001.set\n"
      "  lidcam sets check *.set");
}

}  // namespace lidcam::app
