#pragma once

#include <chrono>
#include <cstdint>

#include "bus/faults/fault_script.h"

namespace lidcam::bus {

/// Which faults a seed may choose. Each row includes the rows above it.
enum class RandomFaultMix : std::uint8_t {
  Packets,     ///< faults of packets and reads from which a stream recovers by itself
  Requests,    ///< also faults of control requests and settings
  Everything,  ///< also reads that are never answered and, for every other seed, an unplugging
};

/// Makes a script from a seed: about four faults per second of bus time, 10000 at most.
///
/// Equal arguments give an equal script on every platform.
///
/// @param duration  bus time over which the faults are distributed: limited to the range of 1 ms to
///                  kLatestFaultTime
[[nodiscard]] FaultScript RandomFaults(std::uint64_t seed, std::chrono::microseconds duration,
                                       RandomFaultMix mix = RandomFaultMix::Requests);

}  // namespace lidcam::bus
