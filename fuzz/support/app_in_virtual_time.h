#pragma once

#include <cstdint>

namespace lidcam::fuzz {

// The linker leads calls of the command line here (--wrap): whatever a command does takes place in
// virtual time, under a limit of steps, over simulated cameras that run freely; and it is interrupted
// in order when it has asked often enough whether it is.

/// Lets the next command ask so often before it is interrupted, which is how often its loops turn.
void InterruptAfter(std::uint32_t polls);

}  // namespace lidcam::fuzz
