#include "library/camera/gates/faulty_port.h"

#include <cstdint>
#include <utility>

#include "base/time_units.h"
#include "driver/core/base/camera_trace.h"
#include "library/camera/gates/frame_faults.h"
#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::app {
namespace {

// Late answers are delayed in the driver's time, real or virtual.
void SleepInWorld(std::uint64_t microseconds) {
  LARGE_INTEGER time{};
  time.QuadPart = -static_cast<std::int64_t>(microseconds) * base::kUnitsPerMicrosecond;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

void TraceFault(const std::string& line) {
  TraceCamera(nullptr, "%s", line.c_str());
}

}  // namespace

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

}  // namespace lidcam::app
