#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/doctor/machine_checks.h"
#include "apps/lidcam/output/utf8_text.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

struct DoctorCommand {
  bool IsJson = false;
};

const char* LevelText(FindingLevel level) {
  switch (level) {
    case FindingLevel::Ok:
      return "ok";
    case FindingLevel::Note:
      return "note";
    case FindingLevel::Wrong:
      return "wrong";
  }
  return "";
}

void PrintJson(const std::vector<Finding>& findings) {
  nlohmann::json rows = nlohmann::json::array();
  for (const Finding& finding : findings) {
    rows.push_back({{"subject", finding.Subject},
                    {"level", LevelText(finding.Level)},
                    {"text", finding.Text},
                    {"remedy", finding.Remedy}});
  }
  std::cout << JsonText(rows) << std::endl;
}

void PrintLines(const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    std::printf("%-5s  %s: %s%s\n", LevelText(finding.Level), finding.Subject.c_str(),
                finding.Text.c_str(),
                finding.Remedy.empty() ? "" : ("; " + finding.Remedy).c_str());
  }
}

void Run(const DoctorCommand& command) {
  const std::vector<Finding> findings = Examine(ThisMachine());
  command.IsJson ? PrintJson(findings) : PrintLines(findings);
  const auto wrong = std::ranges::count(findings, FindingLevel::Wrong, &Finding::Level);
  if (wrong == 0) return;
  throw CommandError(std::to_string(wrong) + (wrong == 1 ? " thing is" : " things are") +
                     " wrong; the command behind the last semicolon mends each");
}

}  // namespace

void AddDoctorCommand(CLI::App& app) {
  const auto command = std::make_shared<DoctorCommand>();
  CLI::App* const sub =
      app.add_subcommand("doctor", "what keeps cameras from working, and what mends it");
  sub->add_flag("--json", command->IsJson, "answer in JSON");
  sub->footer(
      "A line each: permission, holder, kernel driver and bandwidth of each camera that is "
      "plugged\n"
      "in; the kernel's memory for USB programs, PipeWire, v4l2loopback, register set files. "
      "Notes\n"
      "are about what is optional. The exit status is 1 if something is wrong.\n"
      "Example:\n"
      "  lidcam doctor");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
