#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A pin's presentation time: 0 when stopped, advances while the pin runs, halts in pause.
/// Allocated from the pool and reference counted: by its pin, by the files that opened it and by
/// other pins' drivers. The reference clock's operations are safe up to DISPATCH_LEVEL against a
/// change of state.
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
  /// The time that the clock is derived from, which never halts.
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
  LONGLONG elapsed_ = 0;  ///< 100 ns of running time before the current run
  LONGLONG runningSince_ = 0;
};

}  // namespace lidcam::host
