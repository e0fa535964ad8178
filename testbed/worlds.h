#pragma once

#include <cstdint>
#include <functional>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::testbed {

/// Runs `body` as a kernel thread in the machine's own time: for a bus that keeps real time.
///
/// Exceptions of `body` are rethrown.
void RunInRealTime(const std::function<void()>& body);

/// Runs `body` as thread 0 of a world of its own, whose schedule is a function of the seed and
/// whose time is virtual: it advances only when all threads wait, as fast as the machine can. For a
/// free-running bus or a recorded one.
///
/// All kernel objects that `body` makes must be gone when it returns. A std::exception of `body` is
/// rethrown after the world has been checked for leaks, too.
host::SimulationOutcome RunInVirtualTime(const host::SimulationOptions& options,
                                         const std::function<void()>& body);

/// Runs `use`, then `end`, and only then rethrows the exception of `use`: kernel objects must not
/// be destroyed while an exception unwinds, since a world that stops unwinds its threads without
/// releasing anything.
void RunThenEnd(const std::function<void()>& use, const std::function<void()>& end);

}  // namespace lidcam::testbed
