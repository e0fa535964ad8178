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

/// The faults of bus time, and what they make of isochronous reads.
///
/// What becomes of a packet depends on the script and the packets before it, not on how the host
/// cuts the stream into reads; only the faults of a whole read do. Not safe for two threads.
class TimedFaults {
 public:
  explicit TimedFaults(const FaultScript& script);

  /// Bus time in microframes at which the plug is pulled.
  [[nodiscard]] std::optional<std::uint64_t> UnplugTime() const { return unplugTime_; }

  /// Disturbs a read that went well.
  ///
  /// @param counts   gets what was carried out, but for pulling the plug
  /// @param begun    gets the faults that this read is the first to suffer, with the time of it
  /// @return the read's status: Disconnected if the plug is pulled in or before it
  UsbStatus Disturb(std::uint64_t start, std::span<std::uint8_t> buffer,
                    std::span<IsochronousPacket> packets, FaultCounts& counts,
                    std::vector<BusFault>& begun);

 private:
  FaultAgenda agenda_;
  std::optional<std::uint64_t> unplugTime_;
};

}  // namespace lidcam::bus
