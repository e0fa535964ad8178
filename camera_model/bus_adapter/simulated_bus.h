#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

#include "bus/faults/fault_counts.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"
#include "camera_model/device/camera_options.h"
#include "camera_model/device/usb_device.h"

namespace lidcam::bus {

/// How a simulated bus advances its time.
enum class Pacing : std::uint8_t {
  FreeRunning,  ///< time advances only with isochronous reads, which return at once
  RealTime,     ///< a microframe takes 125 us of the machine's steady clock
};

struct SimulatedBusOptions {
  camera_model::UsbDeviceOptions Camera{};
  Pacing Pace = Pacing::FreeRunning;
  /// Bytes per microframe available on the bus; settings that need more are refused.
  std::uint32_t BandwidthLimit = std::numeric_limits<std::uint32_t>::max();
};

/// A bus with one simulated camera. Any thread.
class SimulatedBus final : public UsbBus {
 public:
  /// @throws std::invalid_argument as camera_model::UsbDevice does
  explicit SimulatedBus(SimulatedBusOptions options);

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  /// Reads follow each other without a gap. In real time, a reader that is later than the queue of
  /// a host controller (128 ms) continues with the present microframe; those before it are lost.
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;
  void Abort(std::uint8_t endpoint) override;
  [[nodiscard]] std::uint32_t FrameNumber() override;
  void Unplug() override;

  /// Injects the script's faults of frames, in place of the previous script. Its faults of requests
  /// and times need a FaultBus in front of this bus.
  ///
  /// @param observer  receives one line for each fault when it begins, such as
  ///                  "bus  fault frame 3 packet 5 lose", on the thread of the read; may wait
  void DisturbFrames(const FaultScript& script,
                     std::function<void(const std::string& line)> observer = {});
  /// The faults of frames injected so far.
  [[nodiscard]] FaultCounts FrameFaultCounts();

  /// Calls `look` with exclusive access to the camera: to change the light, to disturb packets, to
  /// read the LED.
  void WithCamera(const std::function<void(camera_model::UsbDevice&)>& look);

 private:
  [[nodiscard]] std::uint64_t Now() const;
  [[nodiscard]] std::uint64_t BeginRead();
  /// Waits for the end of the microframe; Ok, Aborted or Disconnected.
  [[nodiscard]] UsbStatus WaitFor(std::uint64_t microframe);
  UsbStatus ReadSome(std::uint64_t microframe, std::size_t share, std::uint32_t offset,
                     std::span<std::uint8_t> buffer, std::span<IsochronousPacket> packets);
  void TellFrameFaults();

  const SimulatedBusOptions options_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  std::mutex deviceMutex_;  ///< guards device_ and observer_; never held while waiting
  camera_model::UsbDevice device_;
  std::function<void(const std::string&)> observer_;

  std::mutex waitMutex_;  ///< guards isReading_ and isAborted_
  std::condition_variable wake_;
  bool isReading_ = false;
  bool isAborted_ = false;
  std::atomic<bool> isUnplugged_{false};
  std::atomic<std::uint64_t> nextMicroframe_{0};
};

/// Makes a bus with the camera that the options describe.
/// @throws std::invalid_argument, std::runtime_error with a text for the user
[[nodiscard]] std::unique_ptr<SimulatedBus> MakeSimulatedBus(
    const camera_model::CameraOptions& options, Pacing pace);

}  // namespace lidcam::bus
