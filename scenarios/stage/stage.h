#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "bus/faults/fault_bus.h"
#include "platform/host/nt/verifier/calls/call_rules.h"
#include "scenarios/camera/interposer.h"
#include "scenarios/camera/stamped_camera.h"
#include "scenarios/camera/surroundings.h"
#include "scenarios/run/random.h"
#include "scenarios/run/run_parts.h"
#include "scenarios/run/run_result.h"
#include "scenarios/run/status_text.h"
#include "scenarios/run/swarm.h"
#include "scenarios/run/trace_record.h"
#include "scenarios/stage/request_checks.h"
#include "scenarios/stage/run_checks.h"
#include "scenarios/stage/stage_guest.h"
#include "scenarios/stage/stream_checks.h"
#include "scenarios/stage/stream_order.h"
#include "testbed/transport_testbed.h"

namespace lidcam::scenarios {

inline constexpr LONGLONG kMillisecond = testbed::kMillisecond;
inline constexpr LONGLONG kSecond = testbed::kSecond;

/// The camera to be plugged in.
struct PlugOptions {
  StampedCameraOptions Camera{};
  bus::FaultScript Script{};
};

/// The world of one run for a scenario: a camera on its bus, with all faults of the bus and of the
/// kernel, for a guest that provides the host, and the checks of the run.
///
/// All calls except UnplugAt()'s come from the scenario's thread, as the platform calls a driver:
/// one change of a pin's or the device's state at a time.
class Stage final : public RunChecks {
 public:
  /// @param parts  what of the run is left out; outlives it
  /// @param swarm  outlives it
  Stage(const RunKey& key, TraceRecord& trace, RunParts& parts, Swarm& swarm);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage() { trace_.Watch(nullptr); }

  [[nodiscard]] Random& Chance() { return chance_; }
  [[nodiscard]] const RunKey& Key() const { return key_; }
  [[nodiscard]] TraceRecord& Trace() { return trace_; }
  /// The kinds of fault and operation that the run has, and its parameters.
  [[nodiscard]] Swarm& Kinds() { return swarm_; }
  /// Whether one of the run's rare events takes place: at random, and never if its kind is left out.
  [[nodiscard]] bool Happens(Random& chance, std::uint64_t oneIn, std::string_view kind) {
    return chance.OneIn(oneIn) && swarm_.Has(kind);
  }

  /// Whether a thread performs its `number`-th operation; false for one that is left out of this run.
  [[nodiscard]] bool HasOperation(const std::string& who, std::uint64_t number, Random& chance) {
    return parts_.HasOperation(who + " operation " + std::to_string(number), chance);
  }

  static void Sleep(LONGLONG time);
  /// Sleeps up to `longest`; often not at all.
  void SleepAWhile(LONGLONG longest);
  /// The longest time of a sleep in this run, which may be faster or slower than usual.
  [[nodiscard]] std::uint64_t LongestSleep(LONGLONG usual);

  /// Performs one step of the scenario, and adds its status to the trace.
  template <typename Operation>
  NTSTATUS Do(const char* name, Operation operation) {
    Begin(name);
    const NTSTATUS status = operation();
    trace_.Add(StepLine(name, status));
    return status;
  }

  // ---- The camera on its bus.

  /// For scenarios that need the exposure loop.
  [[nodiscard]] Surroundings& Around() { return *around_; }
  [[nodiscard]] StampedCamera& Camera() { return *camera_; }
  [[nodiscard]] Interposer& Between() { return *interposer_; }
  /// After it the stream may use the pipe that carries no picture.
  [[nodiscard]] bool HasRestartByRecovery() const { return requests_.HasRestart(); }
  [[nodiscard]] bool HasKeptRequest() const {
    return interposer_ != nullptr && interposer_->HasKeptRequest();
  }

  /// Makes the bus with its faults, and the camera on it.
  bus::UsbBus& LayBus(const PlugOptions& options);
  /// Destroys the bus. The camera is kept for checks.
  void TakeUpBus();
  /// The camera's driver key; empty if it has none.
  [[nodiscard]] std::u16string DriverKey() const;
  /// The settings that the camera's user saved earlier.
  void SaveSettings(PDEVICE_OBJECT physicalDevice);

  // ---- Faults.

  /// A random script for the bus, of the kinds of fault that the run has.
  [[nodiscard]] bus::FaultScript DrawFaults();
  /// Unplugs the device at the `number`-th switch point of the run.
  void UnplugAt(std::uint64_t number) { unplugAt_ = number; }
  LONGLONG AtSwitchPoint(const host::SwitchPlace& place) {
    const bool isOneOfMany = place.Number != unplugAt_ && !place.Self.HasStopped &&
                             !EndsRecovery(place) && !RunStalls().ArePlanned();
    return isOneOfMany ? 0 : ActAt(place);
  }
  /// The rule that is broken while all threads wait; empty if none is.
  [[nodiscard]] std::string WrongAtRest() const {
    return streamChecks_.WrongAtRest(trace_.HasFailedSend(), trace_.HasFailedDrain());
  }
  /// A number for the driver's state at a switch point, with the field of the stream that is accessed there.
  [[nodiscard]] std::uint64_t DriverState(const void* object) const {
    return streamChecks_.StateAt(object);
  }
  /// Makes the `number`-th allocation from now on fail; the `number`-th call of a kernel function.
  void FailAllocation(std::uint64_t number);
  void FailCall(const char* function, std::uint64_t number, NTSTATUS status);
  /// Cancels the faults that have not occurred yet.
  void EndFaults();
  [[nodiscard]] bool ReachedFault() const { return reachedFault_; }

  // ---- Frames.

  /// From now on a frame may be torn or have a wrong size.
  void AllowDisturbedFrames() { allowsDisturbed_ = true; }
  [[nodiscard]] bool AllowsDisturbedFrames() const {
    return allowsDisturbed_ || WasStalled() || camera_->HasMixedAccesses();
  }
  void CountFrame(bool isWhole) { ++(isWhole ? counts_.Frames : counts_.Disturbed); }
  [[nodiscard]] RunCounts Counts() const;

  // ---- The guest.

  /// Replaces the previous guest.
  void Receive(std::unique_ptr<StageGuest> guest) {
    ForgetOthers();
    guest_ = std::move(guest);
  }
  /// The scenario has ended.
  void EndGuest() {
    if (guest_ != nullptr) guest_->End();
  }
  /// The world has stopped: abandons the guest without releasing its kernel objects.
  void Abandon();
  /// The guest's camera; null if nothing is plugged in.
  [[nodiscard]] UsbDeviceRecord* Device() const;

 private:
  LONGLONG ActAt(const host::SwitchPlace& place);
  // A recovery is the driver's only work item, and frees it at its end. The driver of an image has no trace to tell.
  static bool EndsRecovery(const host::SwitchPlace& place) {
    return std::strcmp(place.Subject.Name, host::calls::kIoFreeWorkItem.Name) == 0;
  }
  [[nodiscard]] bus::FaultScript WithoutOmitted(const bus::FaultScript& script);
  void CheckRequest(PIRP irp, const URB& urb);
  void CheckLine(std::string_view line);

  const RunKey key_;
  TraceRecord& trace_;
  RunParts& parts_;
  Swarm& swarm_;
  Random chance_;
  std::unique_ptr<Surroundings> around_;
  std::unique_ptr<StampedCamera> camera_;
  std::unique_ptr<bus::FaultBus> faults_;
  std::unique_ptr<bus::UsbBus> traced_;
  std::unique_ptr<Interposer> interposer_;
  RequestChecks requests_;
  StreamChecks streamChecks_;
  StreamOrder streamOrder_;
  std::unique_ptr<StageGuest> guest_;
  std::uint64_t unplugAt_ = 0;
  bool allowsDisturbed_ = false;
  RunCounts counts_;
  bool isFaultSet_ = false;
  bool reachedFault_ = false;
};

}  // namespace lidcam::scenarios
