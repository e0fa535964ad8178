#pragma once

#include <functional>

#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {

// Parts of scenarios.

inline bool Succeeded(NTSTATUS status) {
  return status == STATUS_SUCCESS;
}

/// With one isochronous pipe or two.
PlugOptions SomeCamera(Stage& stage);

/// After a refused run: the stream was on the pipe that a recovery had selected.
void ExpectFirstPipe(TransportStage& camera);

/// The circle of transfers was broken: the watchdog detects it, the stream recovers, and is on the
/// first pipe then. Frames are delivered again if that pipe carries the picture; otherwise no
/// further recovery helps. A recovery whose read has stopped for good doesn't end: the next operation hangs.
void ExpectRecovery(TransportStage& camera, bool firstPipeCarriesPicture);

/// Starts a stream after a recovery: the pipe stays the first one until the hardware is restarted.
void ExpectNextStream(TransportStage& camera, bool firstPipeCarriesPicture);

/// The next one to three control requests are never answered.
void SilenceSome(Stage& stage);

/// A sequence of ordinary operations: two streams, with a resampled size and a still, a transfer
/// that fails, a pause, power down and up. Ends at the first failure.
void Everyday(TransportStage& camera);

/// Performs operations in any order that the platform may call them in, until `isEnough` or `most`
/// of them.
void DoSomething(TransportStage& camera, int most, const std::function<bool()>& isEnough);

}  // namespace lidcam::scenarios
