#include "apps/lidcam/options/fault_option.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/time_units.h"
#include "driver/core/base/camera_trace.h"
#include "library/base/command_error.h"
#include "library/camera/frame_faults.h"
#include "library/frames/replay_pipeline.h"
#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::app {
namespace {

constexpr std::chrono::minutes kUnlimited{10};

// Late answers are delayed in the driver's time, real or virtual.
void SleepInWorld(std::uint64_t microseconds) {
  LARGE_INTEGER time{};
  time.QuadPart = -static_cast<std::int64_t>(microseconds) * base::kUnitsPerMicrosecond;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

void TraceFault(const std::string& line) {
  TraceCamera("%s", line.c_str());
}

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

FaultyPort::FaultyPort(std::unique_ptr<bus::UsbBus> bus, const std::optional<std::string>& faults,
                       std::chrono::microseconds duration)
    : bus_(std::move(bus)) {
  if (!faults) return;
  const bus::FaultScript script = FaultsOfOption(*faults, duration);
  simulated_ = DisturbFrames(*bus_, script, TraceFault);
  faults_ = std::make_unique<bus::FaultBus>(
      *bus_, bus::FaultBusOptions{.Script = script, .Sleep = SleepInWorld, .Observer = TraceFault});
}

std::string FaultyPort::Account() const {
  if (!faults_) return {};
  bus::FaultCounts counts = faults_->Counts();
  if (simulated_ != nullptr) counts.Add(simulated_->FrameFaultCounts());
  return bus::ToText(counts);
}

std::chrono::microseconds LikelyDuration(const StreamLimits& limits) {
  if (limits.Duration) return *limits.Duration;
  if (!limits.Frames) return kUnlimited;
  return std::min<std::chrono::microseconds>(
      kUnlimited, kFramePeriod * static_cast<std::int64_t>(std::min<std::uint64_t>(
                                     *limits.Frames, kUnlimited / kFramePeriod)));
}

}  // namespace lidcam::app
