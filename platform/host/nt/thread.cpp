#include "platform/host/nt/thread.h"

#include <memory>
#include <string>
#include <utility>

#include "platform/host/nt/device_file.h"
#include "platform/host/nt/dispatcher.h"
#include "platform/host/nt/handles.h"
#include "platform/host/nt/kernel_faults.h"
#include "platform/host/nt/object_tracker.h"
#include "platform/host/nt/pool.h"
#include "platform/host/nt/real_time_scheduler.h"
#include "platform/host/nt/verifier.h"

namespace lidcam::host {
namespace {

constinit thread_local Thread* t_current = nullptr;
constinit std::atomic<int> g_simulations{0};

// A machine thread's kernel thread, for as long as the machine thread runs.
struct AdoptedThread {
  AdoptedThread() = default;
  AdoptedThread(const AdoptedThread&) = delete;
  AdoptedThread& operator=(const AdoptedThread&) = delete;
  ~AdoptedThread() {
    if (t_current == Adopted) t_current = nullptr;
    delete Adopted;
  }

  Thread* Adopted = nullptr;
};

thread_local AdoptedThread t_adopted;

void AdoptMachineThread() {
  t_adopted.Adopted = RealTimeScheduler::The().Adopt();
  t_current = t_adopted.Adopted;
  if (g_simulations == 0) return;
  ReportViolation("kernel call", "a machine thread that no simulation made runs beside one");
}

// A handle of a thread object. It is a reference of its own.
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

void CheckThreadEnd(const char* call, const Thread& self) {
  if (self.UsedFreed.Block != nullptr) ReportViolation(call, DescribeFreedUse(self.UsedFreed));
  if (self.Level != PASSIVE_LEVEL) {
    ReportViolation(call, "the thread ends at level " + std::to_string(self.Level));
  }
  if (!self.Held.empty()) {
    ReportViolation(call,
                    "the thread ends with " + DescribeObject("lock", self.Held.front()) + " held");
  }
}

void EndThread(Thread& self) {
  Scheduler& world = self.World;
  std::unique_lock guard(world.Lock());
  self.Object.Header.SignalState = 1;
  if (!world.IsStopping()) WakeWaiters(self.Object.Header);
  world.ThreadEnds(self, guard);
  // Still under the lock: whoever runs next may be the world's end.
  t_current = nullptr;
  DereferenceThread(self);
}

}  // namespace

Thread::Thread(Scheduler& world, std::uint32_t number, std::string name)
    : Object{.Header = {}, .Host = this}, World(world), Number(number), Name(std::move(name)) {
  InitializeHeader(Object.Header, kThreadType, sizeof(KTHREAD), 0);
}

Thread::~Thread() {
  ForgetObject(&Object);
}

Thread& CurrentThread() {
  if (t_current == nullptr) AdoptMachineThread();
  return *t_current;
}

Thread* FindCurrentThread() {
  return t_current;
}

Thread* SetCurrentThread(Thread* thread) {
  return std::exchange(t_current, thread);
}

void CountSimulations(int change) {
  g_simulations += change;
}

void RunThread(Thread& thread, const std::function<void()>& body) {
  t_current = &thread;
  try {
    if (thread.World.IsStopping()) throw KernelStopped{};
    body();
    CheckThreadEnd("thread", thread);
  } catch (const ThreadExit&) {
  } catch (const KernelStopped&) {
  }
  EndThread(thread);
}

LONG_PTR DereferenceThread(Thread& thread) {
  const LONG left = --thread.References;
  if (left == 0) delete &thread;
  return left;
}

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

NTSTATUS PsCreateSystemThread(PHANDLE handle, ULONG, POBJECT_ATTRIBUTES, HANDLE, PCLIENT_ID,
                              PKSTART_ROUTINE routine, PVOID context) {
  const CallRule& rule = calls::kPsCreateSystemThread;
  Scheduler& world = EnterKernelCall(rule, nullptr).World;
  const PreemptionBehind behind(rule.Name, nullptr);
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  const std::lock_guard guard(world.Lock());
  Thread& thread =
      world.StartThread("system thread", false, [routine, context] { routine(context); });
  RegisterObject(rule.Name, ObjectKind::Thread, &thread.Object, sizeof(thread.Object));
  *handle = OpenHandle(std::make_shared<ThreadHandle>(thread));
  return STATUS_SUCCESS;
}

NTSTATUS PsTerminateSystemThread(NTSTATUS) {
  const CallRule& rule = calls::kPsTerminateSystemThread;
  const Thread& self = EnterKernelCall(rule, nullptr);
  CheckThreadEnd(rule.Name, self);
  throw ThreadExit{};
}

NTSTATUS ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK, POBJECT_TYPE, KPROCESSOR_MODE,
                                   PVOID* object, POBJECT_HANDLE_INFORMATION) {
  const CallRule& rule = calls::kObReferenceObjectByHandle;
  EnterKernelCall(rule, handle);
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  const std::shared_ptr<HandleObject> found = FindHandle(handle);
  if (found == nullptr) return STATUS_INVALID_HANDLE;
  *object = found->Reference();
  return *object != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

LONG_PTR ObfDereferenceObject(PVOID object) {
  const CallRule& rule = calls::kObfDereferenceObject;
  const Thread& self = EnterKernelCall(rule, object);
  if (*static_cast<const CSHORT*>(object) == IO_TYPE_FILE) return DereferenceFileObject(object);
  ExpectObject(rule.Name, ObjectKind::Thread, object);
  Thread& thread = *static_cast<PKTHREAD>(object)->Host;
  std::unique_lock guard(self.World.Lock());
  if (thread.References == 1 && thread.Object.Header.SignalState == 0) {
    guard.unlock();
    ReportViolation(rule.Name, DescribeObject("thread", object) + " has no reference left to drop");
  }
  return DereferenceThread(thread);
}
