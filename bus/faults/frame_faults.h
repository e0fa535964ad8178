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

/// The faults of a camera's frames, injected by the camera: only the camera knows where its frames
/// begin, and can pause within one.
///
/// Packets must be queried in their order. One thread at a time.
class FrameFaults {
 public:
  FrameFaults() : FrameFaults(FaultScript{}) {}
  explicit FrameFaults(const FaultScript& script);

  /// The fault that delays a packet: a pause, a silence or a stall.
  ///
  /// @param at  FramePacket() of the packet
  [[nodiscard]] std::optional<BusFault> TakeInterruption(std::uint64_t at);

  /// True if a fault may change the packet.
  [[nodiscard]] bool IsDisturbed(std::uint64_t at);
  /// Injects the faults of a packet that is sent.
  ///
  /// @param share  the packet's part of the buffer, a microframe long; its data are at the
  ///               beginning
  void Disturb(std::uint64_t at, std::span<std::uint8_t> share, IsochronousPacket& packet);

  [[nodiscard]] const FaultCounts& Counts() const { return counts_; }
  /// The faults that have begun since the last call, each with its first packet.
  [[nodiscard]] std::vector<BusFault> TakeBegun();

 private:
  void Note(PendingFault& pending, std::uint64_t at);

  FaultAgenda agenda_;
  FaultCounts counts_;
  std::vector<BusFault> begun_;
};

}  // namespace lidcam::bus
