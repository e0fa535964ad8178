#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bus/usb_bus.h"
#include "driver/core/record/camera_context.h"
#include "driver/usb/stream/camera_usb_device.h"
#include "platform/host/ks/device/streaming_device.h"
#include "platform/host/ks/pin/requests/streaming_pin.h"
#include "testbed/device_filter.h"
#include "testbed/testbed.h"
#include "testbed/worlds.h"

namespace lidcam::testbed {

/// 100 ns each.
inline constexpr LONGLONG kMillisecond = 10'000;
inline constexpr LONGLONG kSecond = 1000 * kMillisecond;

/// The format that a stream is asked for: YUY2 of one of the driver's sizes.
struct StreamRequest {
  std::int32_t Width = 640;
  std::int32_t Height = 480;
  Time100ns FrameInterval = 333333;  ///< 100 ns
};

/// What became of a camera's frames since the last Acquire().
struct FrameCounts {
  std::uint64_t Good = 0;         ///< delivered with the size that the sensor's frames have
  std::uint64_t Bad = 0;          ///< delivered with another size
  std::uint64_t Dropped = 0;      ///< begun on the bus and not delivered
  std::uint64_t BusBytes = 0;     ///< bytes of all packets
  std::uint64_t Microframes = 0;  ///< bus time that was read

  [[nodiscard]] std::uint64_t Delivered() const { return Good + Bad; }
};

/// One frame as the pin hands it over. The bytes live until the handler returns.
struct HostedFrame {
  std::span<const std::uint8_t> Yuy2;      ///< the picture in the stream's size
  std::span<const std::uint8_t> RawFrame;  ///< header and native pixels that it came from
  std::uint64_t Microframe = 0;            ///< bus time since the stream's start, at delivery
  bool IsGood = false;                     ///< the raw frame has the size that it should have
  const CameraContext& Camera;             ///< nobody delivers while the handler runs
};

/// Called on the pin's worker, one frame at a time. An exception ends the delivery of further frames
/// and comes out of WaitForFrames().
using FrameHandler = std::function<void(const HostedFrame& frame)>;

struct TransportTestbedOptions {
  /// Where the camera's settings are in the registry; empty: there are none. See
  /// host::ImagingDriverKey().
  std::u16string DriverKey{};
  FrameHandler Frames{};
  ULONG FirstBusFrame = 0;  ///< bus frame number at interrupt time 0
  bool TakesFrames = true;  ///< false: frames are published, and nobody has a buffer for them
  DeviceFilter* Filter = nullptr;  ///< stands below the driver's device; outlives the camera
};

/// The entrance of the device's operations: the streaming class's device, the driver's device object, and
/// a pin that takes the published raw frames and delivers them.
///
/// All threads that call it belong to its world. Stream control comes from one thread at a time.
class TransportTestbed final : public Testbed {
 public:
  /// Builds the device stack. Nothing goes over the bus before Start().
  ///
  /// @param bus  outlives the camera
  /// @throws std::runtime_error if the kernel has no room for the device objects; nothing is left
  TransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options);

  /// As Close(), unless it is destroyed by an exception: the world stops then.
  ~TransportTestbed() noexcept(false);

  // Each gives the driver's status.

  /// Brings the hardware up. The pin exists from here on.
  NTSTATUS Start();
  /// Prepares a stream; frames and counts start anew.
  NTSTATUS Acquire(const StreamRequest& request);
  NTSTATUS Run();
  NTSTATUS Pause();
  NTSTATUS Resume();
  NTSTATUS Release();
  /// Waits until the pin's worker is at rest, and takes the hardware down. Nothing if it isn't up.
  NTSTATUS Stop();

  /// Plug and play tells the driver that its device is gone.
  void TellGone();
  /// PullPlug() and TellGone().
  void Unplug();

  /// The device goes to D3 and comes back to D0. Nothing while the hardware isn't up.
  void PowerDown();
  void PowerUp();

  /// Ends whatever goes on, in order, and takes the device stack down. Nothing may be called after
  /// that but Counts() and End().
  void Close();

  /// Lets `use` work on the camera's record while the pin delivers nothing: for controls, and to look
  /// at it. Not before Start() has succeeded, and not after Stop().
  void WithCamera(const std::function<void(CameraContext& camera)>& use);

  /// Waits until `delivered` frames have come since Acquire(), the bus has ended, or the time is over.
  /// Throws what the handler threw.
  ///
  /// @param limit  100 ns
  /// @return whether so many have come
  bool WaitForFrames(std::uint64_t delivered, LONGLONG limit);

  /// Any thread.
  [[nodiscard]] FrameCounts Counts() const;

  [[nodiscard]] CameraUsbDevice& Device() const {
    return static_cast<CameraUsbDevice&>(*CaptureDeviceOf(ksDevice_.get()));
  }
  [[nodiscard]] bool IsStarted() const { return isStarted_; }
  /// Alternate setting of the stream as it was acquired last.
  [[nodiscard]] std::uint32_t AlternateSetting() const;

 private:
  friend struct HostedPin;

  void AddDevice();
  NTSTATUS StartHardware();
  void MakePin();
  NTSTATUS Process();
  void Deliver(CameraContext& camera, std::uint8_t* raw, std::uint32_t rawBytes);
  [[nodiscard]] BusMeter SinceAcquired() const;
  void NoteFrameStarts();
  void RethrowHandlerError();

  const FrameHandler frames_;
  const bool takesFrames_;
  KEVENT progress_{};  ///< a frame was delivered, or the bus ended
  KMUTEX consumer_{};  ///< held while a frame is delivered, and by who must not meet one
  std::unique_ptr<host::StreamingDevice> ksDevice_;
  KS_DATAFORMAT_VIDEOINFOHEADER format_{};
  std::unique_ptr<host::StreamingPin> pin_;
  volatile LONG processing_ = 0;
  bool isStarted_ = false;
  std::vector<std::uint8_t> picture_;  ///< under consumer_

  mutable std::mutex countsMutex_;  ///< guards what follows; never held over a kernel call
  FrameCounts counts_;
  BusMeter atAcquire_;
  std::uint32_t firstFrameStart_ = 0;
  std::uint32_t frameStarts_ = 0;  ///< as last seen
  std::exception_ptr handlerError_;
};

/// Makes a camera, hands it to `use`, and closes it in order also if `use` throws.
void WithTransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options,
                          const std::function<void(TransportTestbed& camera)>& use);

}  // namespace lidcam::testbed
