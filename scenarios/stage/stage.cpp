#include "scenarios/stage/stage.h"

#include <algorithm>
#include <chrono>

#include "bus/faults/random_faults.h"
#include "bus/passing_bus.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "scenarios/run/recovery_thread.h"
#include "scenarios/run/value_of.h"
#include "testbed/installed_driver.h"

namespace lidcam::scenarios {
namespace {

// Adds each control request, its data and its end to the trace.
class TracedRequests final : public bus::PassingBus {
 public:
  TracedRequests(bus::UsbBus& bus, TraceRecord& trace) : PassingBus(bus), trace_(trace) {}

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    const bus::ControlResult result = PassingBus::ControlTransfer(setup, data);
    std::string line = "request " + std::to_string(setup.RequestType) + " " +
                       std::to_string(setup.Request) + " " + std::to_string(setup.Value) + " " +
                       std::to_string(setup.Index) + " -> " +
                       std::string(bus::ToString(result.Status));
    for (const std::uint8_t byte : data.first(result.Transferred))
      line += " " + std::to_string(byte);
    trace_.Add(line);
    return result;
  }

 private:
  TraceRecord& trace_;
};

}  // namespace

Stage::Stage(const RunKey& key, TraceRecord& trace, RunParts& parts, Swarm& swarm)
    : RunChecks(key.Seed, parts, swarm),
      key_(key),
      trace_(trace),
      parts_(parts),
      swarm_(swarm),
      chance_(key.Seed, 1) {
  trace_.Watch([this](std::string_view line) { CheckLine(line); });
  if (key.Options.HasStalls) RunStalls().BeginAnywhere();
  if (key.Options.HasExposure) around_ = std::make_unique<Surroundings>(key.Seed, swarm);
}

void Stage::Sleep(LONGLONG time) {
  LARGE_INTEGER interval{};
  interval.QuadPart = -time;
  KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

void Stage::SleepAWhile(LONGLONG longest) {
  if (chance_.OneIn(3)) return;
  Sleep(static_cast<LONGLONG>(chance_.Between(1, LongestSleep(longest))));
}

std::uint64_t Stage::LongestSleep(LONGLONG usual) {
  const auto time = static_cast<std::uint64_t>(usual);
  return std::max<std::uint64_t>(1, time * swarm_.Value("sleeps in percent", 100, 1, 200) / 100);
}

std::u16string Stage::DriverKey() const {
  return around_ != nullptr ? around_->DriverKey() : std::u16string();
}

void Stage::SaveSettings(PDEVICE_OBJECT physicalDevice) {
  if (around_ != nullptr) around_->SaveSettings(physicalDevice);
}

bus::FaultScript Stage::WithoutOmitted(const bus::FaultScript& script) {
  bus::FaultScript left{script.Bits};
  for (std::size_t i = 0; i < script.Faults.size(); ++i) {
    const bus::BusFault& fault = script.Faults[i];
    if (parts_.Has("fault " + std::to_string(i + 1) + ": " + bus::ToText(fault)))
      left.Faults.push_back(fault);
  }
  return left;
}

bus::UsbBus& Stage::LayBus(const PlugOptions& options) {
  constexpr LONGLONG kUnitsInMicrosecond = 10;
  StampedCameraOptions camera = options.Camera;
  camera.Around = around_.get();
  camera_ = std::make_unique<StampedCamera>(camera);
  faults_ = std::make_unique<bus::FaultBus>(
      *camera_, bus::FaultBusOptions{.Script = WithoutOmitted(options.Script),
                                     .Sleep =
                                         [](std::uint64_t time) {
                                           Sleep(static_cast<LONGLONG>(time) * kUnitsInMicrosecond);
                                         },
                                     .Observer = {}});
  interposer_ = std::make_unique<Interposer>();
  interposer_->Watch([this](PIRP irp, const URB& urb) { CheckRequest(irp, urb); });
  if (!key_.Options.IsSideBySide) return *faults_;
  traced_ = std::make_unique<TracedRequests>(*faults_, trace_);
  return *traced_;
}

// Also asserts what can change with requests only, and needs no look at each switch point.
void Stage::CheckRequest(PIRP irp, const URB& urb) {
  // The driver of an image has no trace that tells of failed sends.
  const bool mayHaveFailedSend = trace_.HasFailedSend() || testbed::IsDriverOfImage();
  const std::string wrong = requests_.WrongSend(irp, urb, mayHaveFailedSend);
  RequireAlways(wrong.empty(), wrong);
  RequireAlways(!trace_.HasTwoRecoveries(), "a recovery is scheduled while one is under way");
}

void Stage::CheckLine(std::string_view line) {
  if (StreamChecks::IsAcquisition(line)) {
    const UsbCaptureDevice* const usb = guest_->Usb();
    if (usb != nullptr) streamChecks_.Begin(*ValueOf(usb->UsbStream));
  }
  std::string wrong = streamChecks_.Look(line);
  if (wrong.empty()) {
    wrong =
        streamOrder_.Look(line, IsOfRecovery(host::CurrentThread()), host::CurrentWorld().Now());
  }
  RequireAlways(wrong.empty(), wrong);
}

void Stage::TakeUpBus() {
  interposer_.reset();
  traced_.reset();
  faults_.reset();
}

LONGLONG Stage::ActAt(const host::SwitchPlace& place) {
  if (place.Number == unplugAt_ && camera_ != nullptr && parts_.Has("the plug is pulled")) {
    camera_->Unplug();
    reachedFault_ = true;
  }
  if (place.Self.HasStopped) trace_.NoteStoppedReader(place.Self);
  if (EndsRecovery(place)) ++counts_.Recoveries;
  return RunStalls().At(place, place.Self.World.Now());
}

bus::FaultScript Stage::DrawFaults() {
  constexpr bus::RandomFaultMix kMixes[] = {
      bus::RandomFaultMix::Packets, bus::RandomFaultMix::Requests, bus::RandomFaultMix::Everything};
  const std::chrono::milliseconds time(swarm_.Value("ms of bus faults", 3000, 500, 5000));
  bus::FaultScript script = bus::RandomFaults(key_.Seed, time, chance_.OneOf(kMixes));
  std::erase_if(script.Faults, [this](const bus::BusFault& fault) {
    const std::string place(bus::WordOf(fault.Place));
    return !swarm_.Has("fault " + place + " " + std::string(bus::WordOf(fault.Kind)));
  });
  return script;
}

void Stage::FailAllocation(std::uint64_t number) {
  if (!parts_.Has("an allocation fails")) return;
  isFaultSet_ = true;
  host::FailPoolAllocation(static_cast<std::uint32_t>(number));
}

void Stage::FailCall(const char* function, std::uint64_t number, NTSTATUS status) {
  if (!parts_.Has(std::string(function) + " fails")) return;
  isFaultSet_ = true;
  host::FailKernelCall(function, static_cast<std::uint32_t>(number), status);
}

void Stage::EndFaults() {
  if (!isFaultSet_) return;
  isFaultSet_ = false;
  reachedFault_ =
      reachedFault_ || (!host::IsPoolFailureToCome() && !host::IsKernelCallFaultToCome());
  host::FailPoolAllocation(0);
  host::ClearKernelCallFaults();
}

RunCounts Stage::Counts() const {
  RunCounts counts = counts_;
  counts.Steps = Steps();
  return counts;
}

// Destroyed during unwinding, the guest's guards do not call the kernel.
void Stage::Abandon() {
  struct Dropper {
    ~Dropper() { Guest.reset(); }
    std::unique_ptr<StageGuest> Guest;
  };
  ForgetOthers();
  try {
    const Dropper dropper{std::move(guest_)};
    throw host::KernelStopped{};
  } catch (const host::KernelStopped&) {
  }
}

UsbDeviceRecord* Stage::Device() const {
  const UsbCaptureDevice* const usb = guest_ != nullptr ? guest_->Usb() : nullptr;
  if (usb == nullptr) return nullptr;
  return usb->UsbDevice;
}

}  // namespace lidcam::scenarios
