#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A pin's presentation time: 0 at a stop, runs while the pin runs, stands in pause. Lives in the pool
/// as long as it is referenced: by its pin, by the files that opened it and by other pins' drivers.
/// The reference clock's operations are safe up to DISPATCH_LEVEL against a change of state.
class PinClock final : public IKsReferenceClock {
 public:
  /// @return the clock with one reference; null without memory
  static PinClock* Make();

  /// The pin has reached `state`. Up to DISPATCH_LEVEL.
  void SetState(KSSTATE state);

  NTSTATUS NTAPI QueryInterface(const GUID& id, PVOID* object) override;
  ULONG NTAPI AddRef() override;
  ULONG NTAPI Release() override;
  LONGLONG NTAPI GetTime() override;
  /// The time that the clock is made from, which never stands.
  LONGLONG NTAPI GetPhysicalTime() override;
  LONGLONG NTAPI GetCorrelatedTime(LONGLONG* systemTime) override;
  LONGLONG NTAPI GetCorrelatedPhysicalTime(LONGLONG* systemTime) override;
  NTSTATUS NTAPI GetResolution(PKSRESOLUTION resolution) override;
  NTSTATUS NTAPI GetState(KSSTATE* state) override;

 private:
  PinClock();
  ~PinClock() = default;

  KSPIN_LOCK lock_{};
  volatile LONG references_ = 1;
  KSSTATE state_ = KSSTATE_STOP;
  LONGLONG elapsed_ = 0;  ///< 100 ns that the pin has run before this run
  LONGLONG runningSince_ = 0;
};

}  // namespace lidcam::host
