// Events in real time: one lock and one condition for all, which is enough for the few waits of the
// camera's core.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/host/nt/nt_declarations.h"

namespace {

struct Dispatcher {
  std::mutex Lock;
  std::condition_variable Changed;
};

Dispatcher& TheDispatcher() {
  static auto* const dispatcher = new Dispatcher;
  return *dispatcher;
}

using Units100ns = std::chrono::duration<LONGLONG, std::ratio<1, 10'000'000>>;

// A year, in units of 100 ns.
constexpr LONGLONG kLongestWait = 365LL * 24 * 3600 * 10'000'000;

// A synchronization event lets one waiter through and is then unsignalled again.
bool TryTake(KEVENT& event) {
  if (event.Header.SignalState == 0) return false;
  if (event.Header.Type == SynchronizationEvent) event.Header.SignalState = 0;
  return true;
}

}  // namespace

void KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN state) {
  *event = {};
  event->Header.Type = static_cast<UCHAR>(type);
  event->Header.Size = sizeof(KEVENT) / sizeof(LONG);
  event->Header.SignalState = state != FALSE ? 1 : 0;
  event->Header.WaitListHead = {&event->Header.WaitListHead, &event->Header.WaitListHead};
}

LONG KeSetEvent(PRKEVENT event, KPRIORITY, BOOLEAN) {
  Dispatcher& dispatcher = TheDispatcher();
  const std::lock_guard guard(dispatcher.Lock);
  const LONG before = event->Header.SignalState;
  event->Header.SignalState = 1;
  dispatcher.Changed.notify_all();
  return before;
}

NTSTATUS KeWaitForSingleObject(PVOID object, KWAIT_REASON, KPROCESSOR_MODE, BOOLEAN,
                               PLARGE_INTEGER timeout) {
  Dispatcher& dispatcher = TheDispatcher();
  auto& event = *static_cast<KEVENT*>(object);
  std::unique_lock guard(dispatcher.Lock);
  const auto taken = [&event] { return TryTake(event); };
  if (timeout == nullptr) {
    dispatcher.Changed.wait(guard, taken);
    return STATUS_SUCCESS;
  }
  // Negative times are relative; the core uses no absolute ones. Longer ones than the clock can
  // count to are cut.
  const LONGLONG relative = timeout->QuadPart < 0 ? timeout->QuadPart : 0;
  const Units100ns limit(-std::max(relative, -kLongestWait));
  return dispatcher.Changed.wait_for(guard, limit, taken) ? STATUS_SUCCESS : STATUS_TIMEOUT;
}
