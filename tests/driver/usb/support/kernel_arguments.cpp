#include "tests/driver/usb/support/kernel_arguments.h"

#include <mutex>

namespace lidcam::test {
namespace {

std::mutex g_lock;
KernelArguments* g_arguments = nullptr;

template <typename T>
void Note(std::vector<T> KernelArguments::*list, const T& entry) {
  const std::lock_guard guard(g_lock);
  if (g_arguments != nullptr) (g_arguments->*list).push_back(entry);
}

}  // namespace

KernelArguments::KernelArguments() {
  const std::lock_guard guard(g_lock);
  g_arguments = this;
}

KernelArguments::~KernelArguments() {
  const std::lock_guard guard(g_lock);
  g_arguments = nullptr;
}

}  // namespace lidcam::test

using lidcam::test::KernelArguments;
using lidcam::test::Note;

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

LONG NTAPI __real_KeReleaseSemaphore(PRKSEMAPHORE semaphore, KPRIORITY increment, LONG adjustment,
                                     BOOLEAN wait);
LONG NTAPI __wrap_KeReleaseSemaphore(PRKSEMAPHORE semaphore, KPRIORITY increment, LONG adjustment,
                                     BOOLEAN wait);
LONG NTAPI __wrap_KeReleaseSemaphore(PRKSEMAPHORE semaphore, KPRIORITY increment, LONG adjustment,
                                     BOOLEAN wait) {
  Note(&KernelArguments::SemaphoreReleases, {semaphore, increment, adjustment, wait});
  return __real_KeReleaseSemaphore(semaphore, increment, adjustment, wait);
}

LONG NTAPI __real_KeSetEvent(PRKEVENT event, KPRIORITY increment, BOOLEAN wait);
LONG NTAPI __wrap_KeSetEvent(PRKEVENT event, KPRIORITY increment, BOOLEAN wait);
LONG NTAPI __wrap_KeSetEvent(PRKEVENT event, KPRIORITY increment, BOOLEAN wait) {
  if (lidcam::test::g_arguments != nullptr && lidcam::test::g_arguments->OnEventSet) {
    lidcam::test::g_arguments->OnEventSet(event);
  }
  Note(&KernelArguments::EventSets, {event, increment, wait});
  return __real_KeSetEvent(event, increment, wait);
}

PIO_WORKITEM NTAPI __real_IoAllocateWorkItem(PDEVICE_OBJECT device);
PIO_WORKITEM NTAPI __wrap_IoAllocateWorkItem(PDEVICE_OBJECT device);
PIO_WORKITEM NTAPI __wrap_IoAllocateWorkItem(PDEVICE_OBJECT device) {
  Note(&KernelArguments::WorkItemDevices, device);
  return __real_IoAllocateWorkItem(device);
}

void NTAPI __real_IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine,
                                  WORK_QUEUE_TYPE queue, PVOID context);
void NTAPI __wrap_IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine,
                                  WORK_QUEUE_TYPE queue, PVOID context);
void NTAPI __wrap_IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine,
                                  WORK_QUEUE_TYPE queue, PVOID context) {
  Note(&KernelArguments::WorkItemQueues, queue);
  __real_IoQueueWorkItem(item, routine, queue, context);
}

void NTAPI __real_ExQueueWorkItem(PWORK_QUEUE_ITEM item, WORK_QUEUE_TYPE queue);
void NTAPI __wrap_ExQueueWorkItem(PWORK_QUEUE_ITEM item, WORK_QUEUE_TYPE queue);
void NTAPI __wrap_ExQueueWorkItem(PWORK_QUEUE_ITEM item, WORK_QUEUE_TYPE queue) {
  Note(&KernelArguments::WorkItemQueues, queue);
  __real_ExQueueWorkItem(item, queue);
}

NTSTATUS NTAPI __real_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout);
NTSTATUS NTAPI __wrap_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout);
NTSTATUS NTAPI __wrap_KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                            BOOLEAN alertable, PLARGE_INTEGER timeout) {
  Note(&KernelArguments::Waits, {object, reason, mode, alertable, timeout});
  return __real_KeWaitForSingleObject(object, reason, mode, alertable, timeout);
}

void NTAPI __wrap_KsPinAttemptProcessing(PKSPIN pin, BOOLEAN asynchronous);
void NTAPI __wrap_KsPinAttemptProcessing(PKSPIN pin, BOOLEAN asynchronous) {
  Note(&KernelArguments::ProcessingAttempts, {pin, asynchronous});
}

NTSTATUS NTAPI __real_PsTerminateSystemThread(NTSTATUS status);
NTSTATUS NTAPI __wrap_PsTerminateSystemThread(NTSTATUS status);
NTSTATUS NTAPI __wrap_PsTerminateSystemThread(NTSTATUS status) {
  Note(&KernelArguments::ThreadEnds, status);
  return __real_PsTerminateSystemThread(status);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
