#include <memory>
#include <string>

#include "platform/host/nt/objects/dispatcher.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

// A handle of a thread object, with a reference of its own.
class ThreadHandle : public HandleObject {
 public:
  explicit ThreadHandle(Thread& thread) : thread_(thread) { ++thread.References; }
  ~ThreadHandle() override { DereferenceThread(thread_); }

  PVOID Reference() override {
    ++thread_.References;
    return &thread_.Object;
  }

 private:
  Thread& thread_;
};

constexpr ThreadObjectEvents kObjectEvents{
    .Ended = [](KTHREAD& object) { WakeWaiters(object.Header); },
    .Gone = [](KTHREAD& object) { ForgetObject(&object); },
};

// From now on drivers may wait for the thread. Under the world's lock.
void MakeKnown(const char* call, Thread& thread) {
  InitializeHeader(thread.Object.Header, kThreadType, sizeof(KTHREAD), 0);
  thread.ObjectEvents = &kObjectEvents;
  RegisterObject(call, ObjectKind::Thread, &thread.Object, sizeof(thread.Object));
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

PKTHREAD KeGetCurrentThread() {
  return &EnterKernelCall(calls::kKeGetCurrentThread, nullptr).Object;
}

KPRIORITY KeSetPriorityThread(PKTHREAD thread, KPRIORITY priority) {
  constexpr KPRIORITY kHighest = 31;
  const CallRule& rule = calls::kKeSetPriorityThread;
  EnterKernelCall(rule, thread);
  if (priority < 1 || priority > kHighest) {
    ReportViolation(rule.Name, "priority " + std::to_string(priority));
  }
  return thread->Host->Priority.exchange(priority);
}

NTSTATUS PsCreateSystemThread(PHANDLE handle, ULONG, POBJECT_ATTRIBUTES attributes, HANDLE,
                              PCLIENT_ID, PKSTART_ROUTINE routine, PVOID context) {
  const CallRule& rule = calls::kPsCreateSystemThread;
  Scheduler& world = EnterKernelCall(rule, nullptr).World;
  const PreemptionBehind behind(rule.Name, nullptr);
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  const std::lock_guard guard(world.Lock());
  Thread& thread =
      world.StartThread("system thread", false, [routine, context] { routine(context); });
  MakeKnown(rule.Name, thread);
  *handle = OpenHandleOfDriver(rule.Name, attributes, std::make_shared<ThreadHandle>(thread));
  return STATUS_SUCCESS;
}

NTSTATUS PsTerminateSystemThread(NTSTATUS) {
  const CallRule& rule = calls::kPsTerminateSystemThread;
  const Thread& self = EnterKernelCall(rule, nullptr);
  CheckThreadEnd(rule.Name, self);
  throw ThreadExit{};
}
