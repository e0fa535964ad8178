#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/file_roles.h"
#include "bus/faults/fault_bus.h"
#include "bus/usb_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"

namespace lidcam::app {

/// Adds --faults, which lets things go wrong on the camera's bus.
void AddFaultOption(CLI::App& command, std::optional<std::string>& faults);

/// The file that a fault script comes from; nothing for one in the command line.
[[nodiscard]] std::vector<InputRole> FilesOfFaults(const std::optional<std::string>& faults);

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

/// The bus time that a stream within these limits takes; a guess where nothing limits it.
[[nodiscard]] std::chrono::microseconds LikelyDuration(const StreamLimits& limits);

}  // namespace lidcam::app
