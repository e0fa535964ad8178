#pragma once

#include <cstdint>
#include <functional>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::testbed {

/// Runs `body` as a kernel thread of the machine's own time: for a bus that keeps real time.
///
/// What `body` throws comes out of it.
void RunInRealTime(const std::function<void()>& body);

/// Runs `body` as thread 0 of a world of its own, whose schedule is a function of the seed and whose
/// time is virtual: it moves only when everybody waits, as fast as the machine can. For a bus that
/// runs freely or a recorded one.
///
/// Whatever `body` makes in the kernel must be gone when it returns. A std::exception that it throws
/// comes out of this once the world has been checked for what is left, too.
host::SimulationOutcome RunInVirtualTime(const host::SimulationOptions& options,
                                         const std::function<void()>& body);

/// Runs `use`, then `end`, and only then lets out what `use` threw: kernel objects are not taken down
/// while an exception unwinds, since that is how a world that stops leaves them alone.
void RunThenEnd(const std::function<void()>& use, const std::function<void()>& end);

}  // namespace lidcam::testbed
