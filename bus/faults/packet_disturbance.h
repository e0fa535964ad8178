#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/split_mix.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// Flips one to eight bits; at least one is wrong afterwards, unless there are none.
void FlipBits(std::span<std::uint8_t> bytes, base::SplitMix random);

/// A packet that a fault is possible on: it has the bytes for it, and lies within its share.
[[nodiscard]] bool IsFitFor(FaultKind kind, std::span<const std::uint8_t> share,
                            const IsochronousPacket& packet);

/// Does to a packet what a fault of the stream does.
///
/// @param share  the packet's part of the read's buffer
/// @param packet one that IsFitFor() the fault
void DisturbPacket(FaultKind kind, std::span<std::uint8_t> share, IsochronousPacket& packet,
                   base::SplitMix random);

}  // namespace lidcam::bus
