#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "bus/faults/fault_bus.h"
#include "bus/usb_bus.h"
#include "viewer/camera/camera_telemetry.h"
#include "viewer/camera/simulation_panel.h"

namespace lidcam::viewer {

/// A camera's bus as the viewer sees it: it notes what passes, and has faults that begin while it runs. Threads as for
/// the camera's own bus.
class ViewedBus final : public bus::UsbBus {
 public:
  /// @param simulated  the same bus, if it is a simulated camera's, which has faults of frames; else null
  /// @param telemetry  outlives this bus
  ViewedBus(std::unique_ptr<bus::UsbBus> camera, bus::SimulatedBus* simulated,
            CameraTelemetry& telemetry);

  /// Begins the faults of a script as if the bus had been made now; those before end. An empty one ends them. Any
  /// thread. Throws UsageError.
  ///
  /// @param script  as --faults takes it, without files
  void BeginFaults(const std::string& script);

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override;
  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;
  [[nodiscard]] bool HasReceived(std::uint8_t endpoint, std::size_t packets) override;
  void Abort(std::uint8_t endpoint) override;
  [[nodiscard]] std::uint32_t FrameNumber() override;
  void Unplug() override;

 private:
  [[nodiscard]] std::shared_ptr<bus::UsbBus> Target();
  void NoteControl(const bus::SetupPacket& setup, std::span<const std::uint8_t> data);

  const std::unique_ptr<bus::UsbBus> camera_;
  bus::SimulatedBus* const simulated_;
  CameraTelemetry& telemetry_;
  std::atomic<std::uint64_t> microframe_ = 0;  ///< bus time of the last read's end

  std::mutex mutex_;
  std::shared_ptr<bus::FaultBus> faults_;  ///< null: none

  std::uint16_t select_ = 0;  ///< on the threads of control requests, which take turns
};

}  // namespace lidcam::viewer
