#pragma once

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"

namespace lidcam::testbed {

/// Resets the variables that all cameras share to their values after loading the driver and
/// creating a camera: they would otherwise keep the values of earlier streams of this process.
inline void ResetSharedExposure() {
  AeHoldOff = 0;
  AeIndex = 30;
  AeOutput.Exposure = 0;
  AeOutput.CoarseGain = 0;
  AeOutput.FineGain = 0;
  AeRatio = 0;
  AppliedExposureLines = 0;
  LastWrittenExposure = 0;
  AeLightMode = 0;
  LightMode = 0;
}

}  // namespace lidcam::testbed
