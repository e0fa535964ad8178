#include "platform/host/ks/streaming_pin.h"

#include <exception>

namespace lidcam::host {

StreamingPin::StreamingPin(StreamingDevice& device, ProcessRoutine process, PKSDATAFORMAT format)
    : KSPIN{}, device_(device), process_(process), bag_(device.Mutex()) {
  Bag = &bag_;
  ConnectionFormat = format;
  DataFlow = KSPIN_DATAFLOW_OUT;
  Communication = KSPIN_COMMUNICATION_SINK;
  KeInitializeEvent(&attempted_, SynchronizationEvent, FALSE);
  worker_.emplace([this] { Work(); });
}

StreamingPin::~StreamingPin() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  InterlockedExchange(&isClosing_, 1);
  Attempt();
  worker_.reset();
  KsAcquireDevice(&device_);
  bag_.Empty();
  KsReleaseDevice(&device_);
}

void StreamingPin::Attempt() {
  KeSetEvent(&attempted_, IO_NO_INCREMENT, FALSE);
}

void StreamingPin::Work() {
  while (true) {
    KeWaitForSingleObject(&attempted_, Executive, KernelMode, FALSE, nullptr);
    if (InterlockedCompareExchange(&isClosing_, 0, 0) != 0) return;
    process_(this);
  }
}

}  // namespace lidcam::host

void KsPinAttemptProcessing(PKSPIN pin, BOOLEAN) {
  static_cast<lidcam::host::StreamingPin*>(pin)->Attempt();
}
