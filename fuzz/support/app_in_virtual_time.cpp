#include "fuzz/support/app_in_virtual_time.h"

#include <functional>
#include <memory>
#include <string>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "fuzz/support/step_limit.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::fuzz {
namespace {

std::uint32_t g_polls = 0;

}  // namespace

void InterruptAfter(std::uint32_t polls) {
  g_polls = polls;
}

// Each operation by its linker name, with its replacement.

host::SimulationOutcome
RealRunInVirtualTime(const host::SimulationOptions& options, const std::function<void()>& body) asm(
    "__real__ZN6lidcam7testbed16RunInVirtualTimeERKNS_"
    "4host17SimulationOptionsERKSt8functionIFvvEE");
host::SimulationOutcome
RunInVirtualTime(const host::SimulationOptions& options, const std::function<void()>& body) asm(
    "__wrap__ZN6lidcam7testbed16RunInVirtualTimeERKNS_"
    "4host17SimulationOptionsERKSt8functionIFvvEE");

host::SimulationOutcome RunInVirtualTime(const host::SimulationOptions& options,
                                         const std::function<void()>& body) {
  StepLimit limit;
  return RealRunInVirtualTime(limit.WorldOptions(options.Seed), body);
}

void RunInRealTime(const std::function<void()>& body) asm(
    "__wrap__ZN6lidcam7testbed13RunInRealTimeERKSt8functionIFvvEE");

void RunInRealTime(const std::function<void()>& body) {
  RunInVirtualTime({.Seed = 1}, body);
}

using BusMaker = std::unique_ptr<bus::SimulatedBus>(const camera_model::CameraOptions& options,
                                                    bus::Pacing pace);

BusMaker RealMakeSimulatedBus asm(
    "__real__ZN6lidcam3bus16MakeSimulatedBusERKNS_12camera_model13CameraOptionsENS0_6PacingE");
BusMaker MakeSimulatedBus asm(
    "__wrap__ZN6lidcam3bus16MakeSimulatedBusERKNS_12camera_model13CameraOptionsENS0_6PacingE");

std::unique_ptr<bus::SimulatedBus> MakeSimulatedBus(const camera_model::CameraOptions& options,
                                                    bus::Pacing) {
  return RealMakeSimulatedBus(options, bus::Pacing::FreeRunning);
}

// Results of gnuplot are outside of the program.
std::string RunGnuplot(const std::string& script) asm(
    "__wrap__ZN6lidcam3app10RunGnuplotERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");

std::string RunGnuplot(const std::string& script) {
  return script;
}

bool IsInterrupted() asm("__wrap__ZN6lidcam3app13IsInterruptedEv");

bool IsInterrupted() {
  if (g_polls == 0) return true;
  --g_polls;
  return false;
}

bool IsInterruptedByUser() asm("__wrap__ZN6lidcam3app19IsInterruptedByUserEv");

bool IsInterruptedByUser() {
  return g_polls == 0;
}

std::string InterruptText() asm("__wrap__ZN6lidcam3app13InterruptTextB5cxx11Ev");

std::string InterruptText() {
  return g_polls == 0 ? "interrupted" : "";
}

// The engine installs handlers of its own.
void WatchForInterrupt() asm("__wrap__ZN6lidcam3app17WatchForInterruptEv");

void WatchForInterrupt() {}

}  // namespace lidcam::fuzz
