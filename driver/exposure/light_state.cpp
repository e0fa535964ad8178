#include "driver/exposure/light_state.h"

namespace lidcam {

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

}  // namespace lidcam
