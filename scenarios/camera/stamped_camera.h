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

/// What a raw frame's bytes say about it.
enum class FrameContent : std::uint8_t {
  Whole,  ///< all of one frame and nothing else
  Torn,   ///< bytes of several frames, or bytes that no camera sent
  Short,  ///< no header
};

struct StampedCameraOptions {
  /// Bytes per microframe that the bus has room for; settings that need more are refused.
  std::uint32_t BandwidthLimit = 512;
  /// Both pipes of the interface carry the picture. The real camera's first one is an interrupt pipe,
  /// and a stream that a recovery has put there is silent.
  bool HasTwinPipes = false;
  /// How long control requests take, and what light it is; null: no time, and light that changes
  /// slowly. Outlives the camera.
  Surroundings* Around = nullptr;
};

/// A camera that costs next to nothing: descriptors and registers are the simulated camera's, and its
/// frames are stamped, not seen: each byte behind the header tells the frame's number, so that
/// whoever gets a frame can tell whether it is one.
///
/// It lives in virtual time: bus time is that of the world of the calling thread. Its faults begin
/// when a scenario says so, unlike those of a bus::FaultBus, which stand in a script.
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
  /// Callable at any level and under any lock.
  void Unplug() override { isUnplugged_ = true; }

  [[nodiscard]] bool IsUnplugged() const { return isUnplugged_; }

  /// From now on so many reads fail, or are never answered.
  void FailReads(std::uint32_t count) { failingReads_ = count; }
  void SilenceReads(std::uint32_t count) { silentReads_ = count; }
  /// From now on so many reads bring a byte that the camera never sent, and nothing tells of it.
  void CorruptReads(std::uint32_t count) { corruptReads_ = count; }
  /// From now on so many control requests are never answered, or refused.
  void SilenceRequests(std::uint32_t count) { silentRequests_ = count; }
  void StallRequests(std::uint32_t count) { stalledRequests_ = count; }

  /// A select of the bridge was followed by another one: register accesses of two threads have mixed,
  /// from which the driver's application path is not kept, and each may have got the other's register.
  /// Nobody knows what the camera sends from then on.
  [[nodiscard]] bool HasMixedAccesses() const { return hasMixedAccesses_; }

  /// The byte that all pixels of a frame have which the camera has sent since the stream's setting was
  /// selected.
  [[nodiscard]] bool HasSent(std::uint8_t stamp) const {
    return stamp < sent_.size() && sent_.test(stamp);
  }

  /// Looks at a raw frame that the driver has published.
  [[nodiscard]] static FrameContent Check(std::span<const std::uint8_t> rawFrame);

 private:
  [[nodiscard]] static std::uint64_t Microframe();
  void TakeTime();
  void NoteAccess(const bus::SetupPacket& setup);
  [[nodiscard]] std::uint8_t LumaOf(std::uint32_t number, std::uint64_t microframe);
  [[nodiscard]] std::uint32_t FrameBytes() const;
  std::uint32_t FillPacket(std::uint64_t microframe, std::uint32_t limit,
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
  bool isSelected_ = false;  ///< the register access that belongs to a select is still to come
  bool hasMixedAccesses_ = false;
};

}  // namespace lidcam::scenarios
