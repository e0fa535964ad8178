#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "bus/faults/fault_agenda.h"
#include "bus/faults/fault_counts.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// The faults of bus time, and their effects on isochronous reads.
///
/// The fault of a packet depends on the script and the packets before it, not on how the host
/// divides the stream into reads; only the faults of a whole read depend on that. One thread at a
/// time.
class TimedFaults {
 public:
  explicit TimedFaults(const FaultScript& script);

  /// Bus time in microframes at which the device is unplugged.
  [[nodiscard]] std::optional<std::uint64_t> UnplugTime() const { return unplugTime_; }

  /// Injects the faults of a successful read.
  ///
  /// @param counts   gets the injected faults, except for the unplugging
  /// @param begun    gets the faults that begin in this read, with its time
  /// @return the read's status: Disconnected if the device is unplugged in or before it
  UsbStatus Disturb(std::uint64_t start, std::span<std::uint8_t> buffer,
                    std::span<IsochronousPacket> packets, FaultCounts& counts,
                    std::vector<BusFault>& begun);

 private:
  FaultAgenda agenda_;
  std::optional<std::uint64_t> unplugTime_;
};

}  // namespace lidcam::bus
