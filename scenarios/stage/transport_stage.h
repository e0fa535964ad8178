#pragma once

#include <cstdint>
#include <memory>

#include "scenarios/stage/stage.h"
#include "testbed/transport_testbed.h"

namespace lidcam::scenarios {

/// A host with one camera, and every operation of the camera's driver, each of whose answers is checked
/// against those that it may give.
///
/// All calls come from the scenario's thread. What doesn't hold ends the run by a violation.
class TransportStage final : public StageGuest {
 public:
  /// Makes one that lives with the stage.
  static TransportStage& On(Stage& stage);

  explicit TransportStage(Stage& stage) : stage_(stage) {}

  [[nodiscard]] Stage& Host() { return stage_; }

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
  /// Removes what is still plugged in.
  void End() override;

  [[nodiscard]] testbed::TransportTestbed& Hosted() { return *hosted_; }
  [[nodiscard]] const UsbCaptureDevice* Usb() const override;
  [[nodiscard]] UsbStreamRecord* Stream() const { return hosted_->Device().UsbStream; }

  /// Waits for more frames than there are. The limit counts from the end of the last stall.
  [[nodiscard]] bool FramesCome(std::uint64_t count = 2, LONGLONG limit = 2 * kSecond);
  /// Frames come, or the stream is where a recovery puts it: on the first pipe, in silence.
  void RequireFramesOrFirstPipe();

  /// Transfers may stay with the bus until the device goes.
  void AllowLateTransfers() { allowsLateTransfers_ = true; }

 private:
  void TakeFrame(const testbed::HostedFrame& frame);
  void RequireAnswerOfGone(const char* operation, NTSTATUS status);
  void RequireRequestsFail();
  void RequireReleased(bool allAreHome);
  void RequireNothingOf(const UsbStreamRecord& stream);
  void RequireAllHome();

  Stage& stage_;
  std::unique_ptr<testbed::TransportTestbed> hosted_;
  bool isGoneTold_ = false;
  bool allowsLateTransfers_ = false;
  LONGLONG beganStream_ = 0;
};

/// Plays a scenario that calls the driver's operations.
template <void (*Play)(TransportStage& camera)>
void OnTransport(Stage& stage) {
  Play(TransportStage::On(stage));
}

}  // namespace lidcam::scenarios
