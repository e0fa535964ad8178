#pragma once

#include <functional>

#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {

// Pieces that scenarios are put together from.

inline bool Succeeded(NTSTATUS status) {
  return status == STATUS_SUCCESS;
}

/// With one isochronous pipe or two.
PlugOptions SomeCamera(Stage& stage);

/// After a run was refused: the stream stood on the pipe where a recovery had put it.
void ExpectFirstPipe(TransportStage& camera);

/// The circle was broken: the watchdog sees it, the stream recovers, and is on the first pipe then.
/// Frames flow again if that one carries the picture; otherwise every further recovery is in vain.
void ExpectRecovery(TransportStage& camera, bool firstPipeCarriesPicture);

/// A stream on the device after a recovery: the pipe stays the first one until the hardware starts
/// anew.
void ExpectNextStream(TransportStage& camera, bool firstPipeCarriesPicture);

/// The next one to three control requests are never answered.
void SilenceSome(Stage& stage);

/// What a client does with a camera on a good day, a little of everything: two streams, with a
/// resampled size and a still, a transfer that fails, a pause, sleep and waking. Gives up where
/// something fails.
void Everyday(TransportStage& camera);

/// Operations in any order that the platform may call them in, until `isEnough` or `most` of them.
void DoSomething(TransportStage& camera, int most, const std::function<bool()>& isEnough);

}  // namespace lidcam::scenarios
