#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/sensor/controls/power_and_led.h"

namespace lidcam {

/// The light state machine's result, numbered otherwise than LightState: Initial has no mode.
enum LightModeNumber : std::uint32_t {
  LightModeNormal = 0,
  LightModeLowLight = 1,
  LightModeDummy = 2,
};

/// Mode of the state entered last, by any camera: all share it without a lock. A camera in Initial
/// doesn't change it.
extern constinit Shared<std::uint32_t> LightMode;

/// Returns the light state machine to Initial, at each stream start, and sets the limits that the
/// sensor family has.
void ResetLightState(CameraContext& context);

/// Runs the light state machine with the two numbers of a frame. To be called for every frame
/// delivered; does nothing on sensors other than SensorTypeVGA0708 and while LDMode is 1.
///
/// Normal and LowLight are left for Dummy, a trial with registers between theirs, which the same
/// frame already judges. A transition that meets an application access on the bus is given up for
/// this frame. Register accesses may fail or be refused: the state changes all the same.
///
/// Trace lines, each ahead of the transition's register accesses: "light Normal -> Dummy exposure=7
/// luma=41", or instead "light Normal -> Dummy given up: application on the bus". States are named
/// Normal, LowLight, Initial, Dummy.
///
/// @param exposure  flicker periods while the host steers the exposure, else the level that the
///                  sensor's own automatic exposure reports
/// @param luma      average luminance of the frame
/// @return LightMode
/// @par Called as RunFrameExposureControl() is: a transition blocks for control transfers at
/// whatever level the frame path runs on
std::uint32_t UpdateLightState(CameraContext& context, std::uint8_t exposure, std::uint8_t luma);

/// Switches the LED bit on the frame path; on SensorTypeVGA0708 it reads the register only.
void SetLedBit(CameraContext& context, LedState led);

}  // namespace lidcam
