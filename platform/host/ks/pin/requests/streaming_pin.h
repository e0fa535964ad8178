#pragma once

#include "platform/host/ks/device/streaming_device.h"
#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

/// A pin of a streaming device without a file: it has neither states nor frames, only a worker that
/// runs its process routine. Made and destroyed at passive level.
class StreamingPin : public PinBlock {
 public:
  using ProcessRoutine = PFNKSPIN;

  /// @param process  run on the pin's worker at passive level: once for any number of
  ///                 KsPinAttemptProcessing() before it begins, and once more for those during the
  ///                 call. Its result has no effect: only an attempt causes another call.
  /// @param format   of the connection; outlives the pin
  /// @throws std::runtime_error if the kernel gives no thread
  StreamingPin(StreamingDevice& device, ProcessRoutine process, PKSDATAFORMAT format);
  StreamingPin(const StreamingPin&) = delete;
  StreamingPin& operator=(const StreamingPin&) = delete;

  /// Waits for a process call in progress, and empties the bag.
  ~StreamingPin() noexcept(false);
};

}  // namespace lidcam::host
