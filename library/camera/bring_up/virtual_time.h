#pragma once

#include <functional>

namespace lidcam::app {

/// Runs `body` in a world of virtual time, always the same one: equal commands give equal bytes. Passes its
/// exceptions on.
void RunInVirtualTime(const std::function<void()>& body);

}  // namespace lidcam::app
