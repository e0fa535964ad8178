#pragma once

#include <chrono>
#include <cstdint>

#include "bus/faults/fault_script.h"

namespace lidcam::bus {

/// Which faults a seed may choose. Each row includes the rows above it.
enum class RandomFaultMix : std::uint8_t {
  Packets,     ///< what packets and reads suffer and a stream gets over by itself
  Requests,    ///< control requests and settings as well
  Everything,  ///< reads that are never answered and, for every other seed, pulling the plug
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
