#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/object_tracker.h"

/// A work item as drivers get it from the kernel. The platform does not publish its layout.
struct IO_WORKITEM {
  WORK_QUEUE_ITEM Item;
  PDEVICE_OBJECT Device;
  PIO_WORKITEM_ROUTINE Routine;
  PVOID Context;
};

namespace lidcam::host {
namespace {

void RunWorkItem(PVOID item) {
  auto* const work = static_cast<PWORK_QUEUE_ITEM>(item);
  Scheduler& world = CurrentWorld();
  std::unique_lock guard(world.Lock());
  const WORK_QUEUE_ITEM call = *work;
  work->List.Flink = nullptr;
  SetObjectInUse(work, nullptr);
  guard.unlock();
  call.WorkerRoutine(call.Parameter);
}

// An item's first link shows whether it is queued, as on the platform.
void QueueItem(Scheduler& world, const char* call, PWORK_QUEUE_ITEM item) {
  std::unique_lock guard(world.Lock());
  if (item->List.Flink != nullptr) {
    guard.unlock();
    ReportViolation(call, DescribeObject("work item", item) + " is queued already");
  }
  InitializeListHead(&item->List);
  SetObjectInUse(item, "is still queued");
  world.WorkItems().Put(world, RunWorkItem, item);
}

void NTAPI RunIoWorkItem(PVOID parameter) {
  // A copy: the routine may free its item.
  const IO_WORKITEM item = *static_cast<PIO_WORKITEM>(parameter);
  item.Routine(item.Device, item.Context);
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

PIO_WORKITEM IoAllocateWorkItem(PDEVICE_OBJECT device) {
  const CallRule& rule = calls::kIoAllocateWorkItem;
  Thread& self = EnterKernelCall(rule, device);
  if (KernelCallFault(rule.Name)) return nullptr;
  auto* const item = new IO_WORKITEM{.Item = {}, .Device = device, .Routine = {}, .Context = {}};
  RegisterObject(rule.Name, ObjectKind::WorkItem, item, sizeof(*item));
  self.World.NoteObject(item, [](void* left) { delete static_cast<PIO_WORKITEM>(left); });
  return item;
}

void IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine, WORK_QUEUE_TYPE,
                     PVOID context) {
  const CallRule& rule = calls::kIoQueueWorkItem;
  Thread& self = EnterKernelCall(rule, item);
  const PreemptionBehind behind(rule.Name, item);
  ExpectObject(rule.Name, ObjectKind::WorkItem, item);
  WORK_QUEUE_ITEM& work = item->Item;
  {
    // A queued item keeps its routine and context; QueueItem() reports the second queueing.
    const std::lock_guard guard(self.World.Lock());
    if (work.List.Flink == nullptr) {
      item->Routine = routine;
      item->Context = context;
      ExInitializeWorkItem(&work, RunIoWorkItem, item);
    }
  }
  QueueItem(self.World, rule.Name, &work);
}

void IoFreeWorkItem(PIO_WORKITEM item) {
  const CallRule& rule = calls::kIoFreeWorkItem;
  Thread& self = EnterKernelCall(rule, item);
  ExpectObject(rule.Name, ObjectKind::WorkItem, item);
  CheckFreedMemory(rule.Name, item, sizeof(*item));
  self.World.ForgetObject(item);
  delete item;
}

void ExQueueWorkItem(PWORK_QUEUE_ITEM item, WORK_QUEUE_TYPE) {
  const CallRule& rule = calls::kExQueueWorkItem;
  Thread& self = EnterKernelCall(rule, item);
  const PreemptionBehind behind(rule.Name, item);
  // Such an item is in memory of the driver, and registered only while it is queued.
  if (item->List.Flink == nullptr) {
    RegisterObject(rule.Name, ObjectKind::QueueItem, item, sizeof(*item));
  }
  QueueItem(self.World, rule.Name, item);
}
