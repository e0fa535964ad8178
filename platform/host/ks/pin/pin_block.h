#pragma once

#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/pin/pin_worker.h"
#include "platform/host/ks/stream/clock.h"
#include "platform/host/ks/stream/stream_queue.h"

namespace lidcam::host {

/// A pin: the head that its file object points to, the published object directly after it, and the
/// stream.
struct PinBlock : ObjectHead, KSPIN {
  /// A stopped pin without a format and a thread.
  explicit PinBlock(DeviceBlock& device);
  PinBlock(const PinBlock&) = delete;
  PinBlock& operator=(const PinBlock&) = delete;

  PinLink InDevice{{}, this, [](PinBlock& pin) { pin.Frames.HandBack(false); }};
  FilterBlock* Filter = nullptr;
  PinFactoryBlock* Factory = nullptr;
  PFILE_OBJECT File = nullptr;
  const KSDATARANGE* Range = nullptr;  ///< the descriptor's range of the connection's format

  PFNKSPIN Process = nullptr;
  bool ProcessesWithoutFrames = false;
  KSSTATE ProcessesFrom = KSSTATE_RUN;  ///< the lowest state

  ObjectBag Items;
  FrameQueue Frames;
  PinWorker Worker;
  PinClock* Clock = nullptr;  ///< the pin's own, which other pins may use
  IKsReferenceClock* MasterClock = nullptr;
  HANDLE MasterClockHandle = nullptr;  ///< the application's handle
};

inline PinBlock& PinOf(ObjectHead& head) {
  return static_cast<PinBlock&>(head);
}
inline PinBlock& PinOf(PKSPIN pin) {
  return *static_cast<PinBlock*>(pin);
}
/// The pin that a request to its file object is for.
inline PinBlock& PinOf(PIRP irp) {
  PVOID const head = IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext;
  return PinOf(*static_cast<ObjectHead*>(head));
}

/// The driver's entries; null for a pin without a descriptor.
inline const KSPIN_DISPATCH* DispatchOf(const PinBlock& pin) {
  return pin.Descriptor != nullptr ? pin.Descriptor->Dispatch : nullptr;
}

/// Finds the data range of the connection's format: the first that fits it and that the driver
/// accepts. Under the filter's control mutex.
///
/// @param oldFormat  null when the pin is made
/// @return STATUS_NO_MATCH if no range fits, else the driver's last status
NTSTATUS ChooseRange(PinBlock& pin, PKSDATAFORMAT oldFormat);

}  // namespace lidcam::host
