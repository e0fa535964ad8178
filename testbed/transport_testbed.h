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

/// The requested format of a stream: YUY2 of one of the driver's sizes.
struct StreamRequest {
  std::int32_t Width = 640;
  std::int32_t Height = 480;
  Time100ns FrameInterval = 333333;  ///< 100 ns
};

/// Counts of a camera's frames since the last Acquire().
struct FrameCounts {
  std::uint64_t Good = 0;         ///< delivered with the nominal size of the sensor's frames
  std::uint64_t Bad = 0;          ///< delivered with another size
  std::uint64_t Dropped = 0;      ///< begun on the bus and not delivered
  std::uint64_t BusBytes = 0;     ///< bytes of all packets
  std::uint64_t Microframes = 0;  ///< bus time that was read

  [[nodiscard]] std::uint64_t Delivered() const { return Good + Bad; }
};

/// A frame as delivered by the pin. The bytes are valid until the handler returns.
struct HostedFrame {
  std::span<const std::uint8_t> Yuy2;      ///< the picture in the stream's size
  std::span<const std::uint8_t> RawFrame;  ///< header and native pixels of its raw frame
  std::uint64_t Microframe = 0;            ///< bus time since the stream's start, at delivery
  bool IsGood = false;                     ///< the raw frame has the expected size
  const CameraContext& Camera;             ///< no delivery while the handler runs
};

/// Called on the pin's worker, one frame at a time. An exception ends the delivery of further
/// frames and is rethrown by WaitForFrames().
using FrameHandler = std::function<void(const HostedFrame& frame)>;

struct TransportTestbedOptions {
  /// Where the camera's settings are in the registry; empty: no settings. See
  /// host::ImagingDriverKey().
  std::u16string DriverKey{};
  FrameHandler Frames{};
  ULONG FirstBusFrame = 0;  ///< bus frame number at interrupt time 0
  bool TakesFrames = true;  ///< false: frames are published, and the pin has no buffer for them
  DeviceFilter* Filter = nullptr;  ///< attached below the driver's device; outlives the camera
};

/// Gives access to the device's operations: the streaming class's device, the driver's device
/// object, and a pin that takes the published raw frames and delivers them.
///
/// All threads that call it belong to its world. Stream control comes from one thread at a time.
class TransportTestbed final : public Testbed {
 public:
  /// Builds the device stack. The bus is not used before Start().
  ///
  /// @param bus  outlives the camera
  /// @throws std::runtime_error if the kernel has no memory for the device objects; nothing is left
  TransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options);

  /// As Close(), except when an exception destroys it: the world stops then.
  ~TransportTestbed() noexcept(false);

  // Each returns the driver's status.

  /// Starts the hardware. The pin exists from here on.
  NTSTATUS Start();
  /// Prepares a stream; frames and counts start anew.
  NTSTATUS Acquire(const StreamRequest& request);
  NTSTATUS Run();
  NTSTATUS Pause();
  NTSTATUS Resume();
  NTSTATUS Release();
  /// Waits until the pin's worker is idle, and stops the hardware. No effect if it isn't started.
  NTSTATUS Stop();

  /// Plug and play reports to the driver that its device is gone.
  void TellGone();
  /// PullPlug() and TellGone().
  void Unplug();

  /// The device goes to D3 and returns to D0. No effect while the hardware isn't started.
  void PowerDown();
  void PowerUp();

  /// Ends all operations in order, and destroys the device stack. Afterwards only Counts() and
  /// End() may be called.
  void Close();

  /// Calls `use` with the camera's record while the pin delivers nothing: for controls, and to
  /// inspect it. Only after a successful Start(), and before Stop().
  void WithCamera(const std::function<void(CameraContext& camera)>& use);

  /// Waits until `delivered` frames were delivered since Acquire(), the bus has ended, or the time
  /// is over. Throws the handler's exception.
  ///
  /// @param limit  100 ns
  /// @return whether so many were delivered
  bool WaitForFrames(std::uint64_t delivered, LONGLONG limit);

  /// Any thread.
  [[nodiscard]] FrameCounts Counts() const;

  [[nodiscard]] CameraUsbDevice& Device() const {
    return static_cast<CameraUsbDevice&>(*CaptureDeviceOf(ksDevice_.get()));
  }
  [[nodiscard]] bool IsStarted() const { return isStarted_; }
  /// Alternate setting of the last Acquire().
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
  KMUTEX consumer_{};  ///< held while a frame is delivered, and by threads that exclude deliveries
  std::unique_ptr<host::StreamingDevice> ksDevice_;
  KS_DATAFORMAT_VIDEOINFOHEADER format_{};
  std::unique_ptr<host::StreamingPin> pin_;
  volatile LONG processing_ = 0;
  bool isStarted_ = false;
  std::vector<std::uint8_t> picture_;  ///< under consumer_

  mutable std::mutex countsMutex_;  ///< guards the members below; never held over a kernel call
  FrameCounts counts_;
  BusMeter atAcquire_;
  std::uint32_t firstFrameStart_ = 0;
  std::uint32_t frameStarts_ = 0;  ///< as last seen
  std::exception_ptr handlerError_;
};

/// Makes a camera, calls `use` with it, and closes it in order also if `use` throws.
void WithTransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options,
                          const std::function<void(TransportTestbed& camera)>& use);

}  // namespace lidcam::testbed
