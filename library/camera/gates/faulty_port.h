#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "bus/faults/fault_bus.h"
#include "bus/usb_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"

namespace lidcam::app {

/// A camera's bus with the user's fault injection in front of it.
class FaultyPort {
 public:
  /// @param faults    script, file or seed; nothing: the bus is as it is
  /// @param duration  bus time that the faults of a seed spread over
  /// Throws UsageError for a script that can't be read, or has faults that this bus can't have.
  FaultyPort(std::unique_ptr<bus::UsbBus> bus, const std::optional<std::string>& faults,
             std::chrono::microseconds duration);

  [[nodiscard]] bus::UsbBus& Bus() { return faults_ ? *faults_ : *bus_; }

  /// What was carried out so far; empty without a script.
  [[nodiscard]] std::string Account() const;

 private:
  std::unique_ptr<bus::UsbBus> bus_;
  bus::SimulatedBus* simulated_ = nullptr;  ///< bus_, if it is to disturb its frames
  std::unique_ptr<bus::FaultBus> faults_;
};

}  // namespace lidcam::app
