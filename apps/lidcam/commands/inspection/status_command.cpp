#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/running_camera.h"
#include "apps/lidcam/output/utf8_text.h"

namespace lidcam::app {
namespace {

nlohmann::json ReadStatus(const CommonOptions& options) {
  if (const auto client = RunningCamera(options)) {
    nlohmann::json answer = client->Ask({{"do", "status"}});
    answer["open"] = true;
    return answer;
  }
  const std::string unit = UnitOf(options.Camera).value_or("");
  const std::string holder = unit.empty() ? "" : LockHolderOf(unit);
  nlohmann::json answer = {{"camera", options.Camera.Camera}, {"open", !holder.empty()}};
  if (!holder.empty()) answer["heldBy"] = holder;
  return answer;
}

std::string MemberOf(const nlohmann::json& status, const char* member) {
  return status.value(member, std::string());
}

void PrintStream(const nlohmann::json& status) {
  std::printf("  streams %s: %llu frames, %lld dropped, exposure %s %u, light %s\n",
              MemberOf(status, "size").c_str(), status.value("frames", 0ULL),
              status.value("drops", 0LL), status.value("autoExposure", false) ? "auto" : "manual",
              status.value("exposure", 0U), MemberOf(status, "light").c_str());
}

void Print(const nlohmann::json& status) {
  const std::string camera = MemberOf(status, "camera");
  if (!status.at("open").get<bool>()) {
    std::printf("%s: not open\n", camera.c_str());
    return;
  }
  if (status.contains("heldBy")) {
    std::printf("%s: open in %s, which takes no requests\n", camera.c_str(),
                MemberOf(status, "heldBy").c_str());
    return;
  }
  std::printf("%s (%s %s): open in %d (%s)\n", camera.c_str(), MemberOf(status, "identity").c_str(),
              MemberOf(status, "sensor").c_str(), status.value("process", 0),
              MemberOf(status, "command").c_str());
  if (status.value("streams", false)) {
    PrintStream(status);
  } else {
    std::printf("  streams nothing\n");
  }
  for (const nlohmann::json& viewer : status.value("viewers", nlohmann::json::array())) {
    std::printf("  viewer: %s\n", viewer.get<std::string>().c_str());
  }
}

void Run(const CommonOptions& options) {
  const nlohmann::json status = ReadStatus(options);
  if (options.IsJson) {
    std::cout << JsonText(status) << std::endl;
  } else {
    Print(status);
  }
}

}  // namespace

void AddStatusCommand(CLI::App& app) {
  const auto options = std::make_shared<CommonOptions>();
  CLI::App* const sub =
      app.add_subcommand("status", "which process has the camera open, and what it does with it");
  AddCameraOptions(*sub, *options);
  AddOutputOptions(*sub, *options);
  sub->footer(
      "Example:\n"
      "  lidcam status --camera usb --json");
  sub->callback([options] {
    ChooseCamera(*options);
    Run(*options);
  });
}

}  // namespace lidcam::app
