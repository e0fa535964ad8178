#include "driver/exposure/light_state.h"

#include <cstdint>

#include "driver/core/base/camera_trace.h"
#include "driver/exposure/light_transitions.h"
#include "driver/sensor/controls/power_and_led.h"
#include "driver/sensor/register_sets/register_set_list.h"
#include "platform/kernel.h"

namespace lidcam {

constinit Shared<std::uint32_t> LightMode{LightModeNormal};

namespace {

using CountField = Shared<std::int32_t> CameraContext::*;

const char* NameOf(LightState state) {
  switch (state) {
    case LightStateNormal:
      return "Normal";
    case LightStateLowLight:
      return "LowLight";
    case LightStateInitial:
      return "Initial";
    case LightStateDummy:
      break;
  }
  return "Dummy";
}

void TraceGivenUp(const CameraContext& context, LightState from, const LightArrival& to) {
  TraceCamera(&context, "light %s -> %s given up: application on the bus", NameOf(from),
              NameOf(to.State));
}

void WriteRegisters(CameraContext& context, LightRegisters registers) {
  switch (registers) {
    case LightRegisters::NormalList:
      ApplyRegisterSet(context, RegisterList::Normal, RegisterPath::Frame);
      break;
    case LightRegisters::LowLightList:
      ApplyRegisterSet(context, RegisterList::LowLight, RegisterPath::Frame);
      break;
    case LightRegisters::TrialPoint:
      for (const LightRegisterWrite& row : kTrialPoint) {
        row.Write(context, row.Address, row.Value);
      }
      break;
  }
}

void Close(CameraContext& context, LightClosing closing, LightModeNumber mode, CountField count) {
  switch (closing) {
    case LightClosing::Commit:
      DriverWriteSensorRegister(context, SensorRegister::Commit, kCommitExposure);
      break;
    case LightClosing::FreeBus:
      context.DriverRegisterBusy = 0;
      break;
    case LightClosing::ClearCount:
      context.*count = 0;
      break;
    case LightClosing::SetMode:
      LightMode = mode;
      break;
    case LightClosing::DiscardNextFrame:
      context.FrameSettleCount = 0;
      break;
  }
}

void Enter(CameraContext& context, LightState from, const LightArrival& to, CountField count,
           LightReading reading) {
  TraceCamera(&context, "light %s -> %s exposure=%u luma=%u", NameOf(from), NameOf(to.State),
              unsigned{reading.Exposure}, unsigned{reading.Luma});
  context.LightState = to.State;
  context.DriverRegisterBusy = 1;
  WriteRegisters(context, to.Registers);
  if (context.LED == LedPolicyFollowLight) {
    SetLedBit(context, to.LedOn ? LedState::On : LedState::Off);
  }
  for (const LightClosing closing : to.Closing) Close(context, closing, to.Mode, count);
}

void GiveUp(CameraContext& context, const LightTransition& transition) {
  switch (transition.GiveUp) {
    case LightGiveUp::CountAnew:
      context.*transition.Count = 0;
      break;
    case LightGiveUp::SayAndRetry:
      DbgPrint(" The app is modifying regs, do NOTHING!\n");
      break;
  }
  TraceGivenUp(context, transition.From, transition.To);
}

void Take(CameraContext& context, const LightTransition& transition, LightReading reading) {
  DbgPrint("%s", transition.Message);
  if (context.AppRegisterBusy != 0) {
    GiveUp(context, transition);
  } else {
    Enter(context, transition.From, transition.To, transition.Count, reading);
  }
}

// A transition that is given up for years wraps its count past the largest number, which is defined
// here.
void Increment(Shared<std::int32_t>& count) {
  const auto frames = static_cast<std::uint32_t>(static_cast<std::int32_t>(count));
  count = static_cast<std::int32_t>(frames + 1);
}

void CountFrame(CameraContext& context, LightState from, LightReading reading) {
  const LightTransition* counted = nullptr;
  for (const LightTransition& transition : kLightTransitions) {
    if (transition.From == from && transition.Qualifies(reading)) {
      counted = &transition;
      Increment(context.*transition.Count);
      break;
    }
  }
  for (const LightTransition& transition : kLightTransitions) {
    if (transition.From == from && &transition != counted) context.*transition.Count = 0;
  }
}

void ServeState(CameraContext& context, LightState state, LightReading reading) {
  CountFrame(context, state, reading);
  for (const LightTransition& transition : kLightTransitions) {
    if (transition.From == state && context.*transition.Count > transition.Frames) {
      Take(context, transition, reading);
      return;
    }
  }
}

void LeaveInitial(CameraContext& context, LightReading reading) {
  DbgPrint("******** Initial state ********\n");
  const bool isLowLight = reading.Exposure >= kInitialExposureOfLowLight;
  const LightArrival& to = isLowLight ? kInitialLowLight : kInitialNormal;
  if (context.AppRegisterBusy != 0) {
    TraceGivenUp(context, LightStateInitial, to);
  } else {
    Enter(context, LightStateInitial, to, &CameraContext::LightTransitionCount, reading);
  }
}

}  // namespace

void ResetLightState(CameraContext& context) {
  switch (static_cast<std::int32_t>(context.SensorType)) {
    case SensorTypeVGA0408:
    case SensorTypeVGA0708:
      context.LightLimitCeiling = 60;
      context.LightLimitHigh = 30;
      context.LightLimitLow = context.LongConfigDescriptor != 0 ? 7 : 6;
      break;
    case SensorTypeOV7660:
    case SensorTypeOV7663:
      context.LightLimitCeiling = 100;
      context.LightLimitHigh = 20;
      context.LightLimitLow = 0;
      break;
    default:
      break;
  }
  context.LightTransitionCount = 0;
  context.LightBrightCount = 0;
  context.LightState = LightStateInitial;
}

std::uint32_t UpdateLightState(CameraContext& context, std::uint8_t exposure, std::uint8_t luma) {
  if (context.LDMode == 1 || context.SensorType != SensorTypeVGA0708) return LightMode;
  const LightReading reading{exposure, luma};
  const std::uint32_t state = context.LightState;
  if (state == LightStateNormal || state == LightStateLowLight) {
    ServeState(context, static_cast<LightState>(state), reading);
  }
  // The frame that opened a trial judges it as well.
  const std::uint32_t now = context.LightState;
  if (now == LightStateDummy) {
    ServeState(context, LightStateDummy, reading);
  } else if (now == LightStateInitial) {
    LeaveInitial(context, reading);
  }
  return LightMode;
}

void SetLedBit(CameraContext& context, LedState led) {
  SetLedBitByPath(context, led, RegisterPath::Frame);
}

}  // namespace lidcam
