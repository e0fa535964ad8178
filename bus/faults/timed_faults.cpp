#include "bus/faults/timed_faults.h"

#include <algorithm>

#include "bus/faults/packet_disturbance.h"

namespace lidcam::bus {
namespace {

/// An isochronous read, for the faults.
struct Read {
  std::uint64_t Start;
  std::span<std::uint8_t> Buffer;
  std::size_t ShareSize;
  std::span<IsochronousPacket> Packets;
  FaultCounts& Counts;
  std::vector<BusFault>& Begun;

  /// The packet's part of the buffer, limited to the buffer.
  [[nodiscard]] std::span<std::uint8_t> ShareOf(const IsochronousPacket& packet) const {
    const std::size_t offset = std::min<std::size_t>(packet.Offset, Buffer.size());
    const std::size_t size = std::max<std::size_t>(ShareSize, packet.Length);
    return Buffer.subspan(offset, std::min(size, Buffer.size() - offset));
  }

  void Note(PendingFault& pending, std::uint64_t microframe) const {
    const BusFault& fault = pending.Fault();
    Counts.Add(FaultPlace::Time, fault.Kind);
    if (!pending.TakeFirst()) return;
    Begun.push_back(fault);
    Begun.back().At = microframe * kMicrosecondsPerMicroframe;
  }
};

bool IsOfWholeRead(FaultKind kind) {
  return kind == FaultKind::Fail || kind == FaultKind::Silent;
}

void Empty(std::span<IsochronousPacket> packets, UsbStatus status) {
  for (IsochronousPacket& packet : packets) {
    packet.Length = 0;
    packet.Status = status;
  }
}

// A silence ends at a time; the other faults end after their count.
void ApplySilence(PendingFault& pending, const Read& read) {
  const std::uint64_t end = pending.Begin() + MicroframesIn(pending.Fault().Amount);
  std::uint64_t microframe = read.Start;
  for (IsochronousPacket& packet : read.Packets) {
    if (microframe >= pending.Begin() && microframe < end && packet.Length != 0) {
      read.Note(pending, microframe);
      DisturbPacket(FaultKind::Silence, read.ShareOf(packet), packet, pending.Random());
    }
    ++microframe;
  }
  if (microframe >= end) pending.End();
}

void ApplyToPackets(PendingFault& pending, const Read& read) {
  const FaultKind kind = pending.Fault().Kind;
  std::uint64_t microframe = read.Start;
  for (IsochronousPacket& packet : read.Packets) {
    if (pending.IsSpent()) return;
    const auto share = read.ShareOf(packet);
    if (microframe >= pending.Begin() && IsFitFor(kind, share, packet)) {
      DisturbPacket(kind, share, packet, pending.Random());
      read.Note(pending, microframe);
      pending.CarryOut();
    }
    ++microframe;
  }
}

}  // namespace

TimedFaults::TimedFaults(const FaultScript& script) : agenda_(script, FaultPlace::Time) {
  for (const BusFault& fault : script.Faults) {
    if (fault.Place != FaultPlace::Time || fault.Kind != FaultKind::Unplug) continue;
    const std::uint64_t time = MicroframeOf(fault.At);
    unplugTime_ = std::min(unplugTime_.value_or(time), time);
  }
}

UsbStatus TimedFaults::Disturb(std::uint64_t start, std::span<std::uint8_t> buffer,
                               std::span<IsochronousPacket> packets, FaultCounts& counts,
                               std::vector<BusFault>& begun) {
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  std::uint64_t end = start + packets.size();
  UsbStatus status = UsbStatus::Ok;
  if (unplugTime_ && *unplugTime_ < end) {
    const std::uint64_t left = std::max(*unplugTime_, start) - start;
    Empty(packets.subspan(left), UsbStatus::Disconnected);
    packets = packets.first(left);
    end = start + left;
    status = UsbStatus::Disconnected;
  }
  const Read read{start, buffer, share, packets, counts, begun};
  std::vector<PendingFault>& pending = agenda_.BegunBefore(end);
  if (status == UsbStatus::Ok) {
    const auto whole = std::find_if(pending.begin(), pending.end(), [](const PendingFault& fault) {
      return IsOfWholeRead(fault.Fault().Kind);
    });
    if (whole != pending.end()) {
      status = whole->Fault().Kind == FaultKind::Fail ? UsbStatus::Failed : UsbStatus::Silent;
      Empty(packets, status);
      read.Note(*whole, std::max(start, whole->Begin()));
      whole->CarryOut();
      return status;
    }
  }
  for (PendingFault& fault : pending) {
    if (fault.Fault().Kind == FaultKind::Silence) {
      ApplySilence(fault, read);
    } else if (!IsOfWholeRead(fault.Fault().Kind) && fault.Fault().Kind != FaultKind::Unplug) {
      ApplyToPackets(fault, read);
    }
  }
  return status;
}

}  // namespace lidcam::bus
