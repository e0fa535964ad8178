#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/split_mix.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// Flips one to eight different bits; none if `bytes` is empty.
void FlipBits(std::span<std::uint8_t> bytes, base::SplitMix random);

/// Whether a fault is possible on a packet: it is long enough, and within its share.
[[nodiscard]] bool IsFitFor(FaultKind kind, std::span<const std::uint8_t> share,
                            const IsochronousPacket& packet);

/// Changes a packet by a fault of the stream.
///
/// @param share  the packet's part of the read's buffer
/// @param packet one for which IsFitFor() the fault is true
void DisturbPacket(FaultKind kind, std::span<std::uint8_t> share, IsochronousPacket& packet,
                   base::SplitMix random);

}  // namespace lidcam::bus
