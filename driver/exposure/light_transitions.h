#pragma once

#include <cstdint>
#include <span>

#include "driver/core/record/camera_context.h"
#include "driver/exposure/light_state.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {

/// Input of the light state machine from a frame.
struct LightReading {
  std::uint8_t Exposure;
  std::uint8_t Luma;
};

// --- Entering a state ----------------------------------------------------------------------------

enum class LightRegisters : std::uint8_t { NormalList, LowLightList, TrialPoint };

/// What remains to do once the new state's registers are written.
enum class LightClosing : std::uint8_t {
  Commit,
  FreeBus,
  ClearCount,
  SetMode,
  DiscardNextFrame,
};

/// A new state. The bus is held from the change of state to LightClosing::FreeBus.
struct LightArrival {
  LightState State;
  LightModeNumber Mode;
  LightRegisters Registers;
  bool LedOn;  ///< for a LED that follows the light
  std::span<const LightClosing> Closing;
};

struct LightRegisterWrite {
  Status (*Write)(CameraContext& context, RegisterAddress address, std::uint32_t value);
  RegisterAddress Address;
  std::uint8_t Value;
};

/// The trial point, between the register lists of Normal and LowLight, in writing order. It
/// overrides the user's settings; the normal list restores them.
inline constexpr LightRegisterWrite kTrialPoint[] = {
    // Between the 0x2F of Normal and the 0x1F of LowLight.
    {DriverWriteSensorRegister, SensorRegister::Vga0708FrameLength, 0x25},
    {DriverWriteSensorRegister, 0xFF06, 0xF6},
    {DriverWriteBridgeRegister, BridgeRegister::Contrast, 0x80},
    {DriverWriteBridgeRegister, BridgeRegister::Contrast13, 0x80},
    {DriverWriteBridgeRegister, BridgeRegister::Contrast14, 0xB8},
    {DriverWriteBridgeRegister, BridgeRegister::Saturation1, 0xC0},
    {DriverWriteBridgeRegister, BridgeRegister::Saturation2, 0xC0},
    {DriverWriteBridgeRegister, BridgeRegister::Sharpness, 0xC2},
    {DriverWriteBridgeRegister, 0xFF7C, 0x10},
};

inline constexpr LightClosing kClosing[] = {
    LightClosing::Commit,  LightClosing::FreeBus,          LightClosing::ClearCount,
    LightClosing::SetMode, LightClosing::DiscardNextFrame,
};
inline constexpr LightClosing kClosingFromDummyToLowLight[] = {
    LightClosing::Commit,  LightClosing::DiscardNextFrame, LightClosing::SetMode,
    LightClosing::FreeBus, LightClosing::ClearCount,
};
// The first state of a stream neither commits nor costs a frame.
inline constexpr LightClosing kClosingFromInitial[] = {
    LightClosing::SetMode,
    LightClosing::FreeBus,
    LightClosing::ClearCount,
};

// --- The first frame of a stream -----------------------------------------------------------------

/// The machine begins in Normal below this exposure, else in LowLight.
inline constexpr std::uint8_t kInitialExposureOfLowLight = 5;

inline constexpr LightArrival kInitialNormal = {
    LightStateNormal, LightModeNormal, LightRegisters::NormalList, false, kClosingFromInitial,
};
inline constexpr LightArrival kInitialLowLight = {
    LightStateLowLight, LightModeLowLight, LightRegisters::LowLightList, true, kClosingFromInitial,
};

// --- From then on --------------------------------------------------------------------------------

/// What a transition does when it meets an application access on the bus.
enum class LightGiveUp : std::uint8_t {
  CountAnew,    ///< counts the same number of frames again
  SayAndRetry,  ///< writes a message; the next qualifying frame tries again
};

/// A transition out of a state, made by the frame after `Frames` consecutive ones that qualifies as
/// well.
struct LightTransition {
  LightState From;
  bool (*Qualifies)(LightReading reading);
  Shared<std::int32_t> CameraContext::*Count;
  std::int32_t Frames;
  const char* Message;
  LightGiveUp GiveUp;
  LightArrival To;
};

/// A frame counts for the first transition of its state that it qualifies for; the counts of the
/// others restart. The LED switches on the way into the trial, not at its end.
inline constexpr LightTransition kLightTransitions[] = {
    {
        LightStateNormal,
        [](LightReading reading) { return reading.Luma <= 48 && reading.Exposure >= 7; },
        &CameraContext::LightTransitionCount,
        10,
        " ******** From Normal to Dummy ****************\n",
        LightGiveUp::CountAnew,
        {LightStateDummy, LightModeDummy, LightRegisters::TrialPoint, true, kClosing},
    },
    {
        LightStateLowLight,
        [](LightReading reading) { return reading.Luma >= 64 && reading.Exposure < 20; },
        &CameraContext::LightTransitionCount,
        5,
        " ******** From LowLight to Dummy ****************\n",
        LightGiveUp::SayAndRetry,
        {LightStateDummy, LightModeDummy, LightRegisters::TrialPoint, false, kClosing},
    },
    {
        LightStateDummy,
        [](LightReading reading) { return reading.Luma <= 21 && reading.Exposure >= 19; },
        &CameraContext::LightTransitionCount,
        10,
        " ******** From Dummy to LowLight ****************\n",
        LightGiveUp::CountAnew,
        {LightStateLowLight, LightModeLowLight, LightRegisters::LowLightList, true,
         kClosingFromDummyToLowLight},
    },
    {
        LightStateDummy,
        [](LightReading reading) { return reading.Luma > 80 && reading.Exposure <= 8; },
        &CameraContext::LightBrightCount,
        5,
        " ******** From Dummy to Normal ****************\n",
        LightGiveUp::SayAndRetry,
        {LightStateNormal, LightModeNormal, LightRegisters::NormalList, false, kClosing},
    },
};

}  // namespace lidcam
