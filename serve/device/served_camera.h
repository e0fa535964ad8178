#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "bus/enumeration.h"
#include "bus/faults/fault_bus.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"

namespace lidcam::serve {

enum class EndpointKind : std::uint8_t { None, Control, Isochronous, Interrupt };

/// How a control request ended.
struct ControlAnswer {
  bus::UsbStatus Status = bus::UsbStatus::Ok;  ///< Silent: the request is never answered
  std::uint32_t Transferred = 0;               ///< bytes of the data stage
  std::chrono::microseconds Delay{0};          ///< by which the answer is late
};

/// What one microframe of the stream carries.
struct StreamPacket {
  std::span<const std::uint8_t> Data;  ///< valid within the call that it is handed to
  bus::UsbStatus Status = bus::UsbStatus::Ok;
};

/// One camera as a host elsewhere sees it: what its requests need of a bus that keeps no time of its own.
///
/// Time passes by reads of the stream. Nothing here waits: a late answer tells by how much. Not
/// synchronized.
class ServedCamera {
 public:
  /// @param bus     free-running, with the camera not yet enumerated
  /// @param device  what the camera says of itself
  /// @param faults  what goes wrong on the bus
  ServedCamera(std::unique_ptr<bus::UsbBus> bus, bus::UsbDeviceInfo device,
               const std::optional<bus::FaultScript>& faults);

  [[nodiscard]] const bus::UsbDeviceInfo& Device() const { return device_; }

  /// Serves a request on endpoint 0, SET_INTERFACE included.
  ///
  /// @param data  the data stage, at least `setup.Length` bytes
  ControlAnswer Control(const bus::SetupPacket& setup, std::span<std::uint8_t> data);

  /// The alternate setting of an interface that is in force.
  [[nodiscard]] std::uint8_t SettingOf(std::uint8_t interface) const {
    return settings_[interface];
  }

  /// @param address  bit 7 set for IN
  [[nodiscard]] EndpointKind KindOf(std::uint8_t address) const;

  /// Bytes that a microframe of the endpoint may carry in the setting in force; 0 without a stream.
  [[nodiscard]] std::uint32_t BytesPerMicroframe(std::uint8_t address) const;

  /// Hands the next `count` microframes of an isochronous endpoint to `take`, in order.
  ///
  /// @return UsbStatus::Disconnected once the camera is gone or its recording is over, and UsbStatus::Silent
  ///         for a read that is never answered; what was not read is not handed over then
  bus::UsbStatus ReadStream(std::uint8_t address, std::size_t count,
                            const std::function<void(const StreamPacket&)>& take);

  /// Number of the current 1 ms bus frame.
  [[nodiscard]] std::uint32_t FrameNumber() { return Bus().FrameNumber(); }

 private:
  [[nodiscard]] bus::UsbBus& Bus() { return faults_ ? *faults_ : *bus_; }
  bus::ControlResult SelectSetting(const bus::SetupPacket& setup);
  bus::ControlResult AnswerByDescriptors(const bus::SetupPacket& setup,
                                         std::span<std::uint8_t> data) const;
  void NoteConfiguration(const bus::SetupPacket& setup);

  std::unique_ptr<bus::UsbBus> bus_;
  bus::UsbDeviceInfo device_;
  std::unique_ptr<bus::FaultBus> faults_;
  std::chrono::microseconds delay_{0};  ///< of the request under way
  std::uint8_t configuration_ = 0;
  std::vector<std::uint8_t> settings_;  ///< the one in force, by interface
  std::vector<std::uint8_t> buffer_;
  std::vector<bus::IsochronousPacket> packets_;
};

}  // namespace lidcam::serve
