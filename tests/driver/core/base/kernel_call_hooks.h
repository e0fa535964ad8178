#pragma once

#include <functional>
#include <optional>

#include "platform/kernel.h"

namespace lidcam::test {

/// Arguments of one of the driver's waits.
struct WaitCall {
  PVOID Object;
  KWAIT_REASON Reason;
  KPROCESSOR_MODE Mode;
  BOOLEAN Alertable;
  std::optional<LONGLONG> Timeout;  ///< none: without a limit
};

/// Observes the driver's calls of three kernel functions while the object lives; one at a time. The
/// linker redirects those calls here (--wrap), so that the host's kernel needs no hook for them.
class KernelCallHooks {
 public:
  KernelCallHooks();
  KernelCallHooks(const KernelCallHooks&) = delete;
  KernelCallHooks& operator=(const KernelCallHooks&) = delete;
  ~KernelCallHooks();

  /// Before each wait; a status is returned to the driver instead of waiting.
  std::function<std::optional<NTSTATUS>(const WaitCall& call)> OnWait;

  /// After each allocation from the pool.
  std::function<void(PVOID memory, SIZE_T size)> OnAllocate;

  /// Ahead of each return of memory to the pool.
  std::function<void(PVOID memory)> OnFree;
};

}  // namespace lidcam::test
