#include "library/camera/gates/frame_faults.h"

#include <algorithm>
#include <utility>

#include "bus/faults/fault_source.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

bool IsOfFrame(const bus::BusFault& fault) {
  return fault.Place == bus::FaultPlace::Frame;
}

}  // namespace

bus::FaultScript FaultsOfOption(const std::string& value, std::chrono::microseconds duration) {
  if (value.empty()) throw UsageError("faults '' are none: give a script, a file or seed=N");
  try {
    return bus::LoadFaults(value, duration);
  } catch (const bus::FaultScriptError& error) {
    throw UsageError(error.what());
  }
}

void RefuseFrameFaults(const bus::FaultScript& script) {
  const auto fault = std::ranges::find_if(script.Faults, IsOfFrame);
  if (fault == script.Faults.end()) return;
  throw UsageError(
      "fault '" + bus::ToText(*fault) +
      "' needs a simulated camera, whose frames can be told apart; right for any other "
      "would be at TIME");
}

bus::SimulatedBus* DisturbFrames(bus::UsbBus& bus, const bus::FaultScript& script,
                                 std::function<void(const std::string& line)> observer) {
  if (std::ranges::none_of(script.Faults, IsOfFrame)) return nullptr;
  auto* const simulated = dynamic_cast<bus::SimulatedBus*>(&bus);
  if (simulated == nullptr) {
    RefuseFrameFaults(script);
    return nullptr;
  }
  simulated->DisturbFrames(script, std::move(observer));
  return simulated;
}

}  // namespace lidcam::app
