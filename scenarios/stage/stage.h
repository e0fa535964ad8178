#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bus/faults/fault_bus.h"
#include "scenarios/camera/interposer.h"
#include "scenarios/camera/stamped_camera.h"
#include "scenarios/camera/surroundings.h"
#include "scenarios/run/random.h"
#include "scenarios/run/run_result.h"
#include "scenarios/run/stalls.h"
#include "scenarios/run/trace_record.h"
#include "testbed/transport_testbed.h"

namespace lidcam::scenarios {

inline constexpr LONGLONG kMillisecond = testbed::kMillisecond;
inline constexpr LONGLONG kSecond = testbed::kSecond;

/// What one of a run's threads does, and since when.
struct Activity {
  std::string Step = "begin";
  LONGLONG Began = 0;
  bool IsOver = false;  ///< it does nothing any more, or waits for the others
  const host::Thread* Thread = nullptr;
};

/// What a scenario has beside the stage: it lives until the world has ended or stopped.
class StageGuest {
 public:
  StageGuest() = default;
  StageGuest(const StageGuest&) = delete;
  StageGuest& operator=(const StageGuest&) = delete;
  virtual ~StageGuest() = default;

  /// The USB side of the guest's camera; null if it has none.
  [[nodiscard]] virtual const UsbCaptureDevice* Usb() const = 0;
};

/// What is plugged in.
struct PlugOptions {
  StampedCameraOptions Camera{};
  bus::FaultScript Script{};
};

/// The world of one run as a scenario sees it: a host with one camera, and every operation of the
/// camera's driver, each of whose answers is checked against those that it may give.
///
/// What does not hold ends the run by a violation. All calls but Unplug() come from the scenario's
/// thread, which is how the platform calls a driver: one change of a pin's or the device's state at a
/// time.
class Stage {
 public:
  Stage(const RunKey& key, TraceRecord& trace);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  [[nodiscard]] Random& Chance() { return chance_; }
  [[nodiscard]] const RunKey& Key() const { return key_; }
  [[nodiscard]] TraceRecord& Trace() { return trace_; }

  // ---- The camera.

  /// @return false if the kernel had no room for the device stack
  bool PlugIn(const PlugOptions& options = {});
  /// PlugIn(), Start(), Acquire() and Run(), which must all succeed.
  void PlugInAndStream(const PlugOptions& options = {});
  /// The operations of the driver, with the status that each gave.
  NTSTATUS Start();
  NTSTATUS Acquire(std::int32_t width = 160, std::int32_t height = 120);
  NTSTATUS Run();
  NTSTATUS Pause();
  NTSTATUS Resume();
  NTSTATUS Release();
  NTSTATUS Stop();
  void PowerDown();
  void PowerUp();
  /// Plug and play has noticed that the device is gone: stack and driver are told.
  void TellGone();
  /// Takes the camera out of the host in order; nothing may be left of it then.
  void Remove();

  /// For scenarios that need the exposure loop.
  [[nodiscard]] Surroundings& Around() { return *around_; }

  [[nodiscard]] StampedCamera& Camera() { return *camera_; }
  [[nodiscard]] Interposer& Between() { return *interposer_; }
  [[nodiscard]] testbed::TransportTestbed& Hosted() { return *hosted_; }
  [[nodiscard]] UsbStreamRecord* Stream() const;
  /// Null if nothing is plugged in.
  [[nodiscard]] UsbDeviceRecord* Device() const;
  [[nodiscard]] bool IsPluggedIn() const { return hosted_ != nullptr; }

  /// Pulls the plug at the `number`-th switch point of the run.
  void UnplugAt(std::uint64_t number) { unplugAt_ = number; }
  LONGLONG AtSwitchPoint(const host::SwitchPlace& place);

  /// The `number`-th allocation from now on fails; the `number`-th call of a kernel function.
  void FailAllocation(std::uint64_t number);
  void FailCall(const char* function, std::uint64_t number, NTSTATUS status);
  /// Takes back what has not failed by now.
  void EndFaults();

  // ---- Time and frames.

  static void Sleep(LONGLONG time);
  /// Sleeps up to `longest`; often not at all.
  void SleepAWhile(LONGLONG longest);
  /// Waits for more frames than there are. The limit counts from the end of the last stall.
  [[nodiscard]] bool FramesCome(std::uint64_t count = 2, LONGLONG limit = 2 * kSecond);
  /// Frames come, or the stream is where a recovery puts it: on the first pipe, in silence.
  void RequireFramesOrFirstPipe();

  /// A thread that `isMeant` stands still for a while, at the `point`-th switch point that such a thread
  /// comes to from now on.
  void StallOne(IsMeant isMeant, std::uint64_t point, LONGLONG length) {
    stalls_.PlanOne(std::move(isMeant), point, length);
  }
  void ForgetStall() { stalls_.ForgetPlan(); }
  [[nodiscard]] bool WasStalled() const { return stalls_.HaveBegun(); }

  // ---- Checks.

  /// Ends the run unless `holds`: as failed, or as cut short if a thread has been stalled, which may be
  /// why it doesn't.
  void Require(bool holds, const std::string& what);
  /// For what no stall is a reason for: ends the run, as failed, unless `holds`.
  void RequireAlways(bool holds, const std::string& what);
  void RequireStatus(const char* operation, NTSTATUS status,
                     std::initializer_list<NTSTATUS> allowed);
  /// From now on a frame may be torn or of a wrong size.
  void AllowDisturbedFrames() { allowsDisturbed_ = true; }
  /// Transfers may stay with the bus until the device goes.
  void AllowLateTransfers() { allowsLateTransfers_ = true; }

  // ---- For guests, who bring a host of their own.

  /// In place of the guest before.
  void Receive(std::unique_ptr<StageGuest> guest) {
    activities_.clear();
    guest_ = std::move(guest);
  }
  /// The bus with its faults, and the camera on it.
  bus::UsbBus& LayBus(const PlugOptions& options);
  /// Of the camera; empty if it has none.
  [[nodiscard]] std::u16string DriverKey() const;
  /// The settings that the camera's user has saved before.
  void SaveSettings(PDEVICE_OBJECT physicalDevice);
  /// One more thread whose steps count; `activity` lives as long as the guest.
  void Watch(const Activity& activity) { activities_.push_back(&activity); }
  /// The scenario's own thread does something, or waits for the others.
  void Begin(const char* name);
  void WaitForOthers() { own_.IsOver = true; }
  void CountFrame(bool isWhole) { ++(isWhole ? counts_.Frames : counts_.Disturbed); }
  [[nodiscard]] bool AllowsDisturbedFrames() const {
    return allowsDisturbed_ || WasStalled() || camera_->HasMixedAccesses();
  }
  /// When a wait that began at `time` begins to count: no time limit holds while a thread is stalled.
  [[nodiscard]] LONGLONG CountedFrom(LONGLONG time) const;

  // ---- For whoever runs it.

  /// The world has stopped: lets go of the camera as the world's threads did of theirs.
  void Abandon();

  /// What the scenario's threads are doing, those that do nothing any more aside.
  [[nodiscard]] std::vector<const Activity*> Activities() const;
  /// Of those, what takes longest; the scenario's own last one if there are none.
  [[nodiscard]] const Activity& Longest() const;
  /// One of the threads does this.
  [[nodiscard]] bool IsDoing(std::string_view step) const;
  [[nodiscard]] RunCounts Counts() const;
  [[nodiscard]] bool ReachedFault() const { return reachedFault_; }
  /// What came too late after a stall to go on; empty if nothing did.
  [[nodiscard]] const std::string& CutShort() const { return cutShort_; }

 private:
  template <typename Operation>
  NTSTATUS Do(const char* name, Operation operation);
  void TakeFrame(const testbed::HostedFrame& frame);
  void RequireReleased(bool allAreHome);
  void RequireAnswerOfGone(const char* operation, NTSTATUS status);
  void RequireRequestsFail();

  const RunKey key_;
  TraceRecord& trace_;
  Random chance_;
  Stalls stalls_;
  std::string cutShort_;
  std::unique_ptr<Surroundings> around_;
  std::unique_ptr<StampedCamera> camera_;
  std::unique_ptr<bus::FaultBus> faults_;
  std::unique_ptr<Interposer> interposer_;
  std::unique_ptr<testbed::TransportTestbed> hosted_;
  std::unique_ptr<StageGuest> guest_;
  bool isGoneTold_ = false;
  std::uint64_t unplugAt_ = 0;
  bool allowsDisturbed_ = false;
  LONGLONG beganStream_ = 0;
  bool allowsLateTransfers_ = false;
  Activity own_;
  std::vector<const Activity*> activities_;
  RunCounts counts_;
  bool isFaultSet_ = false;
  bool reachedFault_ = false;
};

}  // namespace lidcam::scenarios
