#include "library/camera/source/camera_share.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>

#include "base/folder_entries.h"
#include "base/run_time_folder.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

constexpr const char* kEnding = ".share";

// A killed process leaves its line behind.
bool IsRunning(const std::string& line) {
  constexpr std::string_view kStart = "process ";
  if (!line.starts_with(kStart)) return false;
  int process = 0;
  const auto [rest, error] =
      std::from_chars(line.data() + kStart.size(), line.data() + line.size(), process);
  if (error != std::errc{} || process <= 0) return false;
  return ::kill(process, 0) == 0 || errno != ESRCH;
}

std::string SharerIn(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return IsRunning(line) ? line : std::string();
}

}  // namespace

std::string SharerOf(const std::string& unit) {
  if (unit.empty()) return {};
  const std::optional<fs::path> file = base::RunTimeFile(unit + kEnding);
  return file ? SharerIn(*file) : std::string();
}

std::vector<std::string> SharedUnits() {
  std::vector<std::string> units;
  const std::optional<fs::path> any = base::RunTimeFile(kEnding);
  if (!any) return units;
  for (const fs::path& file : base::EntriesOf(any->parent_path())) {
    if (file.extension() != kEnding) continue;
    const std::string sharer = SharerIn(file);
    if (!sharer.empty()) units.push_back(file.stem().string() + " " + sharer);
  }
  return units;
}

}  // namespace lidcam::app
