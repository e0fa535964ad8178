#pragma once

#include <functional>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::test {

/// Records the driver's arguments of those kernel calls whose effects don't show them, while it
/// lives; one at a time. The linker redirects those calls here (--wrap).
class KernelArguments {
 public:
  KernelArguments();
  KernelArguments(const KernelArguments&) = delete;
  KernelArguments& operator=(const KernelArguments&) = delete;
  ~KernelArguments();

  struct SemaphoreRelease {
    PRKSEMAPHORE Semaphore;
    KPRIORITY Increment;
    LONG Adjustment;
    BOOLEAN Wait;

    friend bool operator==(const SemaphoreRelease&, const SemaphoreRelease&) = default;
  };
  struct EventSet {
    PRKEVENT Event;
    KPRIORITY Increment;
    BOOLEAN Wait;

    friend bool operator==(const EventSet&, const EventSet&) = default;
  };

  struct Wait {
    PVOID Object;
    KWAIT_REASON Reason;
    KPROCESSOR_MODE Mode;
    BOOLEAN Alertable;
    PLARGE_INTEGER Timeout;  ///< readable during the wait only, unless the caller keeps it
  };

  struct ProcessingAttempt {
    PKSPIN Pin;
    BOOLEAN Asynchronous;

    friend bool operator==(const ProcessingAttempt&, const ProcessingAttempt&) = default;
  };

  /// Called before each setting of an event.
  std::function<void(PRKEVENT event)> OnEventSet;

  std::vector<SemaphoreRelease> SemaphoreReleases;
  std::vector<EventSet> EventSets;
  std::vector<PDEVICE_OBJECT> WorkItemDevices;
  std::vector<WORK_QUEUE_TYPE> WorkItemQueues;  ///< of both kinds of items
  std::vector<Wait> Waits;
  std::vector<ProcessingAttempt>
      ProcessingAttempts;  ///< not passed on: a test's pin may be none of the class
  std::vector<NTSTATUS> ThreadEnds;
};

}  // namespace lidcam::test
