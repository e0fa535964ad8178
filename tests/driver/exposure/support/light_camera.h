#pragma once

#include <cstdint>

#include "driver/exposure/light_state.h"
#include "tests/driver/exposure/support/exposure_bench.h"

namespace lidcam::test {

// What the light state machine prints.
inline constexpr const char* kFromNormal = " ******** From Normal to Dummy ****************\n";
inline constexpr const char* kFromLowLight = " ******** From LowLight to Dummy ****************\n";
inline constexpr const char* kToLowLight = " ******** From Dummy to LowLight ****************\n";
inline constexpr const char* kToNormal = " ******** From Dummy to Normal ****************\n";
inline constexpr const char* kInitial = "******** Initial state ********\n";
inline constexpr const char* kDoNothing = " The app is modifying regs, do NOTHING!\n";

/// A camera with two short register lists and a mode that no state has, so that every store of a
/// mode shows.
class LightCamera : public ExposureBench {
 public:
  explicit LightCamera(LightState state) {
    LoadList(Context().NormalRegisters, {{0x33, 0x09, 0x2F}, {0x11, 0x0F, 0x40}});
    LoadList(Context().LowLightRegisters, {{0x33, 0x09, 0x1F}, {0x11, 0x0F, 0x60}});
    StandIn(state);
    LightMode = 7;
  }

  std::int32_t Dark() { return Context().LightTransitionCount; }
  std::int32_t Bright() { return Context().LightBrightCount; }
  std::uint32_t State() { return Context().LightState; }
};

}  // namespace lidcam::test
