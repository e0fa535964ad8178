#include "apps/lidcam/options/fault_option.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "library/frames/replay_pipeline.h"

namespace lidcam::app {
namespace {

constexpr std::chrono::minutes kUnlimited{10};

}  // namespace

void AddFaultOption(CLI::App& command, std::optional<std::string>& faults) {
  command
      .add_option(
          "--faults", faults,
          "what goes wrong on the bus: a script such as 'at 2s lose 5; control 40 stall', a "
          "file with one, or seed=N")
      ->type_name("SCRIPT|FILE|seed=N");
}

std::vector<InputRole> FilesOfFaults(const std::optional<std::string>& faults) {
  std::error_code ignored;
  if (!faults || !std::filesystem::is_regular_file(*faults, ignored)) return {};
  return {{"fault script", *faults}};
}

std::chrono::microseconds LikelyDuration(const StreamLimits& limits) {
  if (limits.Duration) return *limits.Duration;
  if (!limits.Frames) return kUnlimited;
  return std::min<std::chrono::microseconds>(
      kUnlimited, kFramePeriod * static_cast<std::int64_t>(std::min<std::uint64_t>(
                                     *limits.Frames, kUnlimited / kFramePeriod)));
}

}  // namespace lidcam::app
