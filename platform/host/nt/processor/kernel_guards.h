#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/kernel.h"

namespace lidcam::host {

// Guards around kernel calls of the host's own drivers (USB stack, streaming class). A world that
// stops unwinds its threads: nothing is released then, and the kernel is not called.

/// Shows a guard's destructor whether it runs because an exception left its scope.
class UnwindCheck {
 public:
  [[nodiscard]] bool IsUnwinding() const { return std::uncaught_exceptions() != before_; }

 private:
  const int before_ = std::uncaught_exceptions();
};

/// Holds a spin lock, and with it DISPATCH_LEVEL.
class SpinLockGuard {
 public:
  explicit SpinLockGuard(KSPIN_LOCK& lock) : lock_(lock) { KeAcquireSpinLock(&lock_, &before_); }
  SpinLockGuard(const SpinLockGuard&) = delete;
  SpinLockGuard& operator=(const SpinLockGuard&) = delete;
  ~SpinLockGuard() noexcept(false) {
    if (!check_.IsUnwinding()) KeReleaseSpinLock(&lock_, before_);
  }

 private:
  const UnwindCheck check_;
  KSPIN_LOCK& lock_;
  KIRQL before_ = PASSIVE_LEVEL;
};

/// Runs `action` under a spin lock, as with a SpinLockGuard, whose look at the exceptions in flight takes longer than
/// most actions. If `action` throws, the world stops, and the lock isn't released.
template <typename Action>
void UnderSpinLock(KSPIN_LOCK& lock, const Action& action) {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock, &before);
  action();
  KeReleaseSpinLock(&lock, before);
}

/// Raises the caller to DISPATCH_LEVEL.
class DispatchLevelGuard {
 public:
  DispatchLevelGuard() { KeRaiseIrql(DISPATCH_LEVEL, &before_); }
  DispatchLevelGuard(const DispatchLevelGuard&) = delete;
  DispatchLevelGuard& operator=(const DispatchLevelGuard&) = delete;
  ~DispatchLevelGuard() noexcept(false) {
    if (!check_.IsUnwinding()) KeLowerIrql(before_);
  }

 private:
  const UnwindCheck check_;
  KIRQL before_ = PASSIVE_LEVEL;
};

/// A system thread that serves its owner, whose destructor waits for the thread's end.
class ServiceThread {
 public:
  /// @param body  returns after its owner has requested it
  /// @throws std::runtime_error if the kernel gives no thread; `body` doesn't run then
  explicit ServiceThread(std::function<void()> body) {
    auto start = std::make_unique<Start>(std::move(body));
    Start& gate = *start;
    HANDLE handle = nullptr;
    const NTSTATUS status =
        PsCreateSystemThread(&handle, THREAD_ALL_ACCESS, nullptr, nullptr, nullptr, Run, &gate);
    if (!NT_SUCCESS(status)) throw std::runtime_error("the kernel gives no system thread");
    static_cast<void>(start.release());  // owned by the thread now
    const NTSTATUS referenced = ObReferenceObjectByHandle(handle, THREAD_ALL_ACCESS, nullptr,
                                                          KernelMode, &object_, nullptr);
    ZwClose(handle);
    if (!NT_SUCCESS(referenced)) gate.Body = nullptr;
    KeSetEvent(&gate.Open, IO_NO_INCREMENT, FALSE);
    if (!NT_SUCCESS(referenced)) throw std::runtime_error("the system thread can't be referenced");
  }
  ServiceThread(const ServiceThread&) = delete;
  ServiceThread& operator=(const ServiceThread&) = delete;
  ~ServiceThread() noexcept(false) {
    if (check_.IsUnwinding()) return;
    KeWaitForSingleObject(object_, Executive, KernelMode, FALSE, nullptr);
    ObDereferenceObject(object_);
  }

 private:
  // The thread does not start its body before its owner holds a reference to it.
  struct Start {
    explicit Start(std::function<void()> body) : Body(std::move(body)) {
      KeInitializeEvent(&Open, NotificationEvent, FALSE);
    }
    std::function<void()> Body;
    KEVENT Open{};
  };

  static void NTAPI Run(PVOID context) {
    const std::unique_ptr<Start> start(static_cast<Start*>(context));
    KeWaitForSingleObject(&start->Open, Executive, KernelMode, FALSE, nullptr);
    if (start->Body != nullptr) start->Body();
  }

  const UnwindCheck check_;
  PVOID object_ = nullptr;
};

}  // namespace lidcam::host
