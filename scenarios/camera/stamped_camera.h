#pragma once

#include <atomic>
#include <bitset>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "bus/usb_bus.h"
#include "camera_model/device/usb_device.h"
#include "scenarios/camera/surroundings.h"

namespace lidcam::scenarios {

/// The contents of a raw frame, by its bytes.
enum class FrameContent : std::uint8_t {
  Whole,  ///< all of one frame and nothing else
  Torn,   ///< bytes of several frames, or bytes that the camera never sent
  Short,  ///< no header
};

struct StampedCameraOptions {
  /// Bytes per microframe available on the bus; settings that need more are refused.
  std::uint32_t BandwidthLimit = 512;
  /// Both pipes of the interface carry the picture. On the real camera the first one is an
  /// interrupt pipe, and a stream that a recovery has moved to it is silent.
  bool HasTwinPipes = false;
  /// Duration of control requests, and the light; null: no duration, and light that changes slowly.
  /// Outlives the camera.
  Surroundings* Around = nullptr;
};

/// A camera that costs almost no time: descriptors and registers are the simulated camera's, and
/// its frames are stamped, not rendered: each byte after the header identifies the frame, so that a
/// torn frame is recognised.
///
/// Its time is virtual: bus time is that of the calling thread's world. Its faults begin when a
/// scenario calls for them, unlike those of a bus::FaultBus, which are in a script.
class StampedCamera final : public bus::UsbBus {
 public:
  explicit StampedCamera(const StampedCameraOptions& options);

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override;
  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;
  void Abort(std::uint8_t) override {}
  [[nodiscard]] std::uint32_t FrameNumber() override;
  /// Any level, under any lock.
  void Unplug() override { isUnplugged_ = true; }

  [[nodiscard]] bool IsUnplugged() const { return isUnplugged_; }

  /// The next `count` reads fail, or are never answered.
  void FailReads(std::uint32_t count) { failingReads_ = count; }
  void SilenceReads(std::uint32_t count) { silentReads_ = count; }
  /// The next `count` reads contain a byte that the camera never sent, without an error status.
  void CorruptReads(std::uint32_t count) { corruptReads_ = count; }
  /// The next `count` control requests are never answered, or refused.
  void SilenceRequests(std::uint32_t count) { silentRequests_ = count; }
  void StallRequests(std::uint32_t count) { stalledRequests_ = count; }

  /// A select of the bridge was followed by another one: register accesses of two threads have
  /// mixed, which the driver does not prevent for its application path, and each may have accessed
  /// the other's register. The frames are unpredictable from then on.
  [[nodiscard]] bool HasMixedAccesses() const { return hasMixedAccesses_; }

  /// Whether the camera has sent a frame with this stamp since the stream's setting was selected.
  [[nodiscard]] bool HasSent(std::uint8_t stamp) const {
    return stamp < sent_.size() && sent_.test(stamp);
  }

  /// Checks a raw frame that the driver has published.
  [[nodiscard]] static FrameContent Check(std::span<const std::uint8_t> rawFrame);

 private:
  [[nodiscard]] static std::uint64_t Microframe();
  void TakeTime();
  void NoteAccess(const bus::SetupPacket& setup);
  [[nodiscard]] std::uint8_t LumaOf(std::uint32_t number, std::uint64_t microframe);
  [[nodiscard]] std::uint32_t FrameBytes() const;
  /// @param total  bytes of a frame
  std::uint32_t FillPacket(std::uint64_t microframe, std::uint32_t total, std::uint32_t limit,
                           std::span<std::uint8_t> out);
  static bool Take(std::uint32_t& count);
  void JoinPipes(std::span<std::uint8_t> configuration) const;

  const StampedCameraOptions options_;
  camera_model::UsbDevice device_;
  std::uint64_t startedAt_ = 0;  ///< microframe
  std::bitset<128> sent_;        ///< stamps
  std::atomic<bool> isUnplugged_ = false;
  std::uint32_t failingReads_ = 0;
  std::uint32_t silentReads_ = 0;
  std::uint32_t corruptReads_ = 0;
  std::uint32_t silentRequests_ = 0;
  std::uint32_t stalledRequests_ = 0;
  bool isSelected_ = false;  ///< the register access after a select is still to come
  bool hasMixedAccesses_ = false;
};

}  // namespace lidcam::scenarios
