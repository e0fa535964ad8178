#pragma once

#include <optional>

#include "platform/host/ks/object_bag.h"
#include "platform/host/ks/streaming_device.h"
#include "platform/host/nt/kernel_guards.h"

namespace lidcam::host {

/// A pin of a streaming device, with the worker that runs its process routine. Made and destroyed at
/// passive level.
class StreamingPin : public KSPIN {
 public:
  using ProcessRoutine = NTSTATUS(NTAPI*)(PKSPIN pin);

  /// @param process  run on the pin's worker at passive level: once for any number of
  ///                 KsPinAttemptProcessing() before it begins, and once more for those that come
  ///                 while it runs. Its result says whether there is more to do, which only the next
  ///                 attempt finds out.
  /// @param format   of the connection; outlives the pin
  /// @throws std::runtime_error if the kernel gives no thread
  StreamingPin(StreamingDevice& device, ProcessRoutine process, PKSDATAFORMAT format);
  StreamingPin(const StreamingPin&) = delete;
  StreamingPin& operator=(const StreamingPin&) = delete;

  /// Waits until the process routine doesn't run any more, and empties the bag.
  ~StreamingPin() noexcept(false);

  /// KsPinAttemptProcessing().
  void Attempt();

 private:
  void Work();

  StreamingDevice& device_;
  const ProcessRoutine process_;
  ObjectBag bag_;
  KEVENT attempted_{};
  LONG isClosing_ = 0;  ///< interlocked
  std::optional<ServiceThread> worker_;
};

}  // namespace lidcam::host
