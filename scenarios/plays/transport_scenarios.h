#pragma once

#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {

// Scenarios of the driver's operations, in any order that the platform may call them in, over a
// bus, a kernel and a USB stack with faults.

void StartAndStop(TransportStage& camera);
void PauseStorm(TransportStage& camera);
void SecondPin(TransportStage& camera);
void PowerChanges(TransportStage& camera);
void UrbErrors(TransportStage& camera);
void SubmitFailures(TransportStage& camera);
void LostCompletions(TransportStage& camera);
void SilentRequests(TransportStage& camera);
void UnplugAnywhere(TransportStage& camera);
void OutOfMemory(TransportStage& camera);
void FailingCallOfName(TransportStage& camera);
void Mixture(TransportStage& camera);
void LostWorkItem(TransportStage& camera);
void KeptRequest(TransportStage& camera);

}  // namespace lidcam::scenarios
