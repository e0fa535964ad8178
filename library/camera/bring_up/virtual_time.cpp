#include "library/camera/bring_up/virtual_time.h"

#include <cstdint>

#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

// Any constant seed.
constexpr std::uint64_t kSeed = 1;

}  // namespace

void RunInVirtualTime(const std::function<void()>& body) {
  testbed::RunInVirtualTime({.Seed = kSeed, .KeepsFreedPool = false}, body);
}

}  // namespace lidcam::app
