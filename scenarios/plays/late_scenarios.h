#pragma once

#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {

// Scenarios of a processor that is stalled for long at one of the places where the stream's threads
// interact, while the stream is paused, released and restarted, or the device is stopped and
// removed.

void LateCompletion(TransportStage& camera);
void LateFailure(TransportStage& camera);
void LateTick(TransportStage& camera);
void LateFrameThread(TransportStage& camera);
void LateRecovery(TransportStage& camera);
void LateFailureAlone(TransportStage& camera);
void LateFrameThreadOverPauses(TransportStage& camera);
void LateAcquisition(TransportStage& camera);
void AtTicks(TransportStage& camera);

}  // namespace lidcam::scenarios
