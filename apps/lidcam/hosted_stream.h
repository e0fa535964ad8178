#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "apps/lidcam/bus_gates.h"
#include "apps/lidcam/camera_source.h"
#include "apps/lidcam/control_table.h"
#include "apps/lidcam/frame_path.h"
#include "apps/lidcam/stream_size.h"
#include "bus/enumeration.h"
#include "world/hosted_camera.h"

namespace lidcam::app {

/// Runs `body` in the time that the camera's bus keeps: the machine's for a bus that is paced, virtual
/// time for one that runs freely and for recordings. What it throws comes out.
void RunInTimeOf(const CameraChoice& choice, const std::function<void()>& body);
void RunInVirtualTime(const std::function<void()>& body);

/// A stream through the whole driver: hardware start, acquisition and run are done when it is handed
/// out.
class HostedStream {
 public:
  HostedStream(world::HostedCamera& camera, const bus::UsbDeviceInfo& device, PictureSize rawSize)
      : camera_(camera), device_(device), rawSize_(rawSize) {}
  HostedStream(const HostedStream&) = delete;
  HostedStream& operator=(const HostedStream&) = delete;

  /// Lets a little time go by, less if frames come. False when the camera is gone or a recording has
  /// no more, and all frames that there were have been delivered. Throws what the handler threw, and
  /// CommandError for a stream whose transfers have come to a standstill.
  bool Advance();

  [[nodiscard]] StreamCounts Counts() const;
  [[nodiscard]] bool IsUnplugged() const { return camera_.End() == world::BusEnd::Unplugged; }
  /// World time since the stream ran.
  [[nodiscard]] double Seconds() const;
  /// What the camera sends, whatever is delivered.
  [[nodiscard]] PictureSize RawSize() const { return rawSize_; }
  [[nodiscard]] std::uint32_t AlternateSetting() const { return camera_.AlternateSetting(); }
  [[nodiscard]] const bus::UsbDeviceInfo& Device() const { return device_; }
  [[nodiscard]] world::HostedCamera& Camera() { return camera_; }
  [[nodiscard]] const CameraContext& Context() const { return *camera_.Device().Camera; }

 private:
  void WatchTransfers();

  world::HostedCamera& camera_;
  const bus::UsbDeviceInfo& device_;
  PictureSize rawSize_;
  LONGLONG start_ = static_cast<LONGLONG>(KeQueryInterruptTime());
  std::uint64_t microframes_ = 0;
  LONGLONG lastRead_ = start_;
};

struct StreamSetup {
  StreamSize Size;
  std::span<const ControlAssignment> Controls{};  ///< set before the first frame, in this order
  world::FrameHandler Frames{};
};

/// Plugs the camera in, brings a stream up, hands it to `use`, and takes everything down in order,
/// whatever `use` throws. Within a world of the bus's time.
///
/// Throws CommandError if the camera doesn't come up, or has no such stream.
void WithStream(bus::UsbBus& bus, const StreamSetup& setup,
                const std::function<void(HostedStream& stream)>& use);

/// The picture of a stream as the pin delivers it, and where it came from.
[[nodiscard]] inline DeliveredFrame ToDelivered(const world::HostedFrame& frame) {
  return {.Yuy2 = frame.Yuy2, .RawFrame = frame.RawFrame, .Microframe = frame.Microframe};
}

}  // namespace lidcam::app
