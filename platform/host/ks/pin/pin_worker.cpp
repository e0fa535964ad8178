#include "platform/host/ks/pin/pin_worker.h"

#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {

PinWorker::PinWorker(PinBlock& pin) : pin_(pin) {
  KeInitializeSpinLock(&lock_);
  KeInitializeEvent(&attempted_, SynchronizationEvent, FALSE);
  KeInitializeEvent(&idle_, NotificationEvent, TRUE);
  KeInitializeEvent(&ended_, NotificationEvent, FALSE);
}

NTSTATUS PinWorker::Start() {
  HANDLE handle = nullptr;
  NTSTATUS status =
      PsCreateSystemThread(&handle, THREAD_ALL_ACCESS, nullptr, nullptr, nullptr, Run, this);
  if (!NT_SUCCESS(status)) return status;
  status =
      ObReferenceObjectByHandle(handle, THREAD_ALL_ACCESS, nullptr, KernelMode, &thread_, nullptr);
  ZwClose(handle);
  if (!NT_SUCCESS(status)) {
    thread_ = nullptr;
    InterlockedExchange(&isEnding_, 1);
    Attempt();
    KeWaitForSingleObject(&ended_, Executive, KernelMode, FALSE, nullptr);
  }
  return status;
}

void PinWorker::End() {
  if (thread_ == nullptr) return;
  InterlockedExchange(&isEnding_, 1);
  Attempt();
  KeWaitForSingleObject(thread_, Executive, KernelMode, FALSE, nullptr);
  ObDereferenceObject(thread_);
  thread_ = nullptr;
}

void PinWorker::Attempt() {
  KeSetEvent(&attempted_, IO_NO_INCREMENT, FALSE);
}

void PinWorker::Allow() {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  isAllowed_ = true;
  KeReleaseSpinLock(&lock_, before);
}

void PinWorker::Forbid() {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  isAllowed_ = false;
  KeReleaseSpinLock(&lock_, before);
}

void PinWorker::WaitUntilIdle() {
  KeWaitForSingleObject(&idle_, Executive, KernelMode, FALSE, nullptr);
}

void NTAPI PinWorker::Run(PVOID context) {
  auto& worker = *static_cast<PinWorker*>(context);
  worker.Work();
  KeSetEvent(&worker.ended_, IO_NO_INCREMENT, FALSE);
}

void PinWorker::Work() {
  while (true) {
    KeWaitForSingleObject(&attempted_, Executive, KernelMode, FALSE, nullptr);
    if (InterlockedCompareExchange(&isEnding_, 0, 0) != 0) return;
    bool isMoreToDo = true;
    while (isMoreToDo && Begin()) {
      const NTSTATUS status = pin_.Process(&pin_);
      EndCall();
      isMoreToDo = status == STATUS_SUCCESS && pin_.Frames.HasFrame();
    }
  }
}

bool PinWorker::Begin() {
  if (pin_.Process == nullptr) return false;
  if (!pin_.ProcessesWithoutFrames && !pin_.Frames.HasFrame()) return false;
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  const bool isAllowed = isAllowed_;
  if (isAllowed) KeClearEvent(&idle_);
  KeReleaseSpinLock(&lock_, before);
  return isAllowed;
}

void PinWorker::EndCall() {
  KeSetEvent(&idle_, IO_NO_INCREMENT, FALSE);
}

}  // namespace lidcam::host
