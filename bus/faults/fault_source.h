#pragma once

#include <chrono>
#include <string>

#include "bus/faults/fault_script.h"

namespace lidcam::bus {

/// Makes the fault script from one argument of the command line.
///
/// `seed=N` gives RandomFaults() of that number, `seed=N,packets` and `seed=N,everything` with
/// another mix than the default; the name of a file gives the script in it; anything else is the
/// script itself.
///
/// @param duration  bus time over which the faults of a seed are distributed
/// Throws FaultScriptError.
[[nodiscard]] FaultScript LoadFaults(const std::string& argument,
                                     std::chrono::microseconds duration);

}  // namespace lidcam::bus
