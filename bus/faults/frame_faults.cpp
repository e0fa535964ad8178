#include "bus/faults/frame_faults.h"

#include <algorithm>
#include <utility>

#include "bus/faults/packet_disturbance.h"

namespace lidcam::bus {
namespace {

bool Interrupts(const PendingFault& pending) {
  const FaultKind kind = pending.Fault().Kind;
  return kind == FaultKind::Pause || kind == FaultKind::Silence || kind == FaultKind::Stall;
}

}  // namespace

FrameFaults::FrameFaults(const FaultScript& script) : agenda_(script, FaultPlace::Frame) {}

void FrameFaults::Note(PendingFault& pending, std::uint64_t at) {
  counts_.Add(FaultPlace::Frame, pending.Fault().Kind);
  if (pending.TakeFirst()) {
    begun_.push_back(pending.Fault());
    begun_.back().At = at;
  }
  pending.CarryOut();
}

std::optional<BusFault> FrameFaults::TakeInterruption(std::uint64_t at) {
  std::vector<PendingFault>& pending = agenda_.BegunBefore(at + 1);
  const auto interruption = std::find_if(pending.begin(), pending.end(), Interrupts);
  if (interruption == pending.end()) return std::nullopt;
  Note(*interruption, at);
  return interruption->Fault();
}

bool FrameFaults::IsDisturbed(std::uint64_t at) {
  return !agenda_.BegunBefore(at + 1).empty();
}

void FrameFaults::Disturb(std::uint64_t at, std::span<std::uint8_t> share,
                          IsochronousPacket& packet) {
  for (PendingFault& pending : agenda_.BegunBefore(at + 1)) {
    const FaultKind kind = pending.Fault().Kind;
    if (Interrupts(pending) || !IsFitFor(kind, share, packet)) continue;
    DisturbPacket(kind, share, packet, pending.Random());
    Note(pending, at);
  }
}

std::vector<BusFault> FrameFaults::TakeBegun() {
  return std::exchange(begun_, {});
}

}  // namespace lidcam::bus
