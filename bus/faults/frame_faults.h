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

/// The faults of a camera's frames, for the camera to carry out: it alone knows where its frames begin,
/// and can stand still in one.
///
/// What is asked for comes in the order of the packets. Not safe for two threads.
class FrameFaults {
 public:
  FrameFaults() : FrameFaults(FaultScript{}) {}
  explicit FrameFaults(const FaultScript& script);

  /// What keeps a packet from being sent: a pause, a silence or a stall.
  ///
  /// @param at  FramePacket() of the packet
  [[nodiscard]] std::optional<BusFault> TakeInterruption(std::uint64_t at);

  /// True if a packet that is sent may be another than the camera's.
  [[nodiscard]] bool IsDisturbed(std::uint64_t at);
  /// Disturbs a packet that is sent.
  ///
  /// @param share  bytes that a microframe has room for; the packet's lie at its beginning
  void Disturb(std::uint64_t at, std::span<std::uint8_t> share, IsochronousPacket& packet);

  [[nodiscard]] const FaultCounts& Counts() const { return counts_; }
  /// The faults that packets were the first to suffer since the last call, with the packets' places.
  [[nodiscard]] std::vector<BusFault> TakeBegun();

 private:
  void Note(PendingFault& pending, std::uint64_t at);

  FaultAgenda agenda_;
  FaultCounts counts_;
  std::vector<BusFault> begun_;
};

}  // namespace lidcam::bus
