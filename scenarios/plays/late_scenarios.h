#pragma once

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

// Scenarios of a processor that stops for long at one of the places where the stream's threads meet,
// while the stream is paused, released and started anew, or the device is stopped and removed.

void LateCompletion(Stage& stage);
void LateFailure(Stage& stage);
void LateTick(Stage& stage);
void LateFrameThread(Stage& stage);
void LateRecovery(Stage& stage);

}  // namespace lidcam::scenarios
