#pragma once

#include <cstdint>

namespace lidcam::fuzz {

// The linker redirects calls of the command line here (--wrap): each command runs in virtual time,
// under a limit of steps, over free-running simulated cameras; and it is interrupted regularly
// after a number of polls for an interrupt.

/// Sets how many polls the next command may make before it is interrupted: the number of its loops'
/// turns.
void InterruptAfter(std::uint32_t polls);

}  // namespace lidcam::fuzz
