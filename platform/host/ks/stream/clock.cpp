#include "platform/host/ks/stream/clock.h"

#include <new>

namespace lidcam::host {
namespace {

constexpr ULONG kClockTag = 0x6C43534B;  // "KSCl"

LONGLONG SystemTime() {
  return static_cast<LONGLONG>(KeQueryInterruptTime());
}

}  // namespace

PinClock::PinClock() {
  KeInitializeSpinLock(&lock_);
}

PinClock* PinClock::Make() {
  PVOID const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(PinClock), kClockTag);
  return memory != nullptr ? new (memory) PinClock : nullptr;
}

void PinClock::SetState(KSSTATE state) {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  const LONGLONG now = SystemTime();
  if (state_ == KSSTATE_RUN) elapsed_ += now - runningSince_;
  if (state == KSSTATE_STOP) elapsed_ = 0;
  runningSince_ = now;
  state_ = state;
  KeReleaseSpinLock(&lock_, before);
}

NTSTATUS PinClock::QueryInterface(const GUID&, PVOID* object) {
  *object = nullptr;
  return STATUS_NOT_SUPPORTED;
}

ULONG PinClock::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&references_));
}

ULONG PinClock::Release() {
  const LONG left = InterlockedDecrement(&references_);
  if (left == 0) ExFreePool(this);
  return static_cast<ULONG>(left);
}

LONGLONG PinClock::GetTime() {
  LONGLONG systemTime = 0;
  return GetCorrelatedTime(&systemTime);
}

LONGLONG PinClock::GetPhysicalTime() {
  return SystemTime();
}

LONGLONG PinClock::GetCorrelatedTime(LONGLONG* systemTime) {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  const LONGLONG now = SystemTime();
  const LONGLONG time = state_ == KSSTATE_RUN ? elapsed_ + (now - runningSince_) : elapsed_;
  KeReleaseSpinLock(&lock_, before);
  *systemTime = now;
  return time;
}

LONGLONG PinClock::GetCorrelatedPhysicalTime(LONGLONG* systemTime) {
  *systemTime = SystemTime();
  return *systemTime;
}

NTSTATUS PinClock::GetResolution(PKSRESOLUTION resolution) {
  *resolution = {1, 0};
  return STATUS_SUCCESS;
}

NTSTATUS PinClock::GetState(KSSTATE* state) {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  *state = state_;
  KeReleaseSpinLock(&lock_, before);
  return STATUS_SUCCESS;
}

}  // namespace lidcam::host
