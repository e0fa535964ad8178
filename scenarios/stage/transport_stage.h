#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "scenarios/stage/stage.h"
#include "testbed/transport_testbed.h"

namespace lidcam::scenarios {

/// A host with one camera, and all operations of the camera's driver; each status is compared with
/// those that are allowed.
///
/// All calls come from the scenario's thread. A failed check ends the run by a violation.
class TransportStage final : public StageGuest {
 public:
  /// Makes one with the lifetime of the stage.
  static TransportStage& On(Stage& stage);

  explicit TransportStage(Stage& stage) : stage_(stage) {}

  [[nodiscard]] Stage& Host() { return stage_; }

  /// @return false if the kernel had no memory for the device stack
  bool PlugIn(const PlugOptions& options = {});
  /// PlugIn(), Start(), Acquire() and Run(), which must all succeed.
  void PlugInAndStream(const PlugOptions& options = {});
  /// The operations of the driver, each with its status.
  NTSTATUS Start();
  NTSTATUS Acquire(std::int32_t width = 160, std::int32_t height = 120);
  NTSTATUS Run();
  NTSTATUS Pause();
  NTSTATUS Resume();
  NTSTATUS Release();
  NTSTATUS Stop();
  void PowerDown();
  void PowerUp();
  /// Plug and play has detected that the device is gone: informs stack and driver.
  void TellGone();
  /// Removes the camera from the host in order, and checks that nothing is left of it.
  void Remove();
  /// Removes what is still plugged in.
  void End() override;

  [[nodiscard]] testbed::TransportTestbed& Hosted() { return *hosted_; }
  [[nodiscard]] const UsbCaptureDevice* Usb() const override;
  [[nodiscard]] UsbStreamRecord* Stream() const { return hosted_->Device().UsbStream; }

  /// Waits for `count` more frames. The limit counts from the end of the last stall.
  [[nodiscard]] bool FramesCome(std::uint64_t count = 2, LONGLONG limit = 2 * kSecond);
  /// Frames come, or the stream is silent: on the first pipe after a recovery, or as a recovery's read has stopped for
  /// good, so that the next operation hangs.
  void RequireFramesOrFirstPipe();

  /// Transfers may stay in flight until the device is removed.
  void AllowLateTransfers() { allowsLateTransfers_ = true; }

 private:
  void TakeFrame(const testbed::HostedFrame& frame);
  void RequireAnswerOfGone(const char* operation, NTSTATUS status);
  void RequireRequestsFail();
  void RequireReleased(bool allAreHome);
  std::size_t RequireNothingOf(const UsbStreamRecord& stream);
  void RequireAllHome(std::size_t prepared);

  Stage& stage_;
  std::unique_ptr<testbed::TransportTestbed> hosted_;
  bool isGoneTold_ = false;
  bool allowsLateTransfers_ = false;
  bool hasFailedPreparation_ = false;  ///< since the last stream
  LONGLONG beganStream_ = 0;
};

/// Runs a scenario that calls the driver's operations.
template <void (*Play)(TransportStage& camera)>
void OnTransport(Stage& stage) {
  Play(TransportStage::On(stage));
}

}  // namespace lidcam::scenarios
