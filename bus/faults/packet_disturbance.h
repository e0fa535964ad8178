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

/// Bytes that a packet must have for the fault to be possible on it.
[[nodiscard]] std::uint32_t ShortestPacketFor(FaultKind kind);

/// Does to a packet what a fault of the stream does.
///
/// @param share  the packet's part of the read's buffer
/// @param packet at least ShortestPacketFor() and at most `share` long
void DisturbPacket(FaultKind kind, std::span<std::uint8_t> share, IsochronousPacket& packet,
                   base::SplitMix random);

}  // namespace lidcam::bus
