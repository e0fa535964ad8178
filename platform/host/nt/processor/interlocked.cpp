// Each is one atomic step, and a switch point of a simulation.

#include "platform/host/nt/scheduling/thread.h"

using lidcam::host::EnterKernelCall;
using lidcam::host::PreemptionBehind;
using lidcam::host::calls::kInterlocked;

namespace {

// For the history, and for the hooks at switch points.
const void* Plain(LONG volatile* word) {
  return const_cast<const LONG*>(word);
}

}  // namespace

LONG InterlockedIncrement(LONG volatile* addend) {
  EnterKernelCall(kInterlocked, Plain(addend));
  const PreemptionBehind behind(kInterlocked.Name, Plain(addend));
  return __atomic_add_fetch(addend, 1, __ATOMIC_SEQ_CST);
}

LONG InterlockedDecrement(LONG volatile* addend) {
  EnterKernelCall(kInterlocked, Plain(addend));
  const PreemptionBehind behind(kInterlocked.Name, Plain(addend));
  return __atomic_sub_fetch(addend, 1, __ATOMIC_SEQ_CST);
}

LONG InterlockedExchange(LONG volatile* target, LONG value) {
  EnterKernelCall(kInterlocked, Plain(target));
  const PreemptionBehind behind(kInterlocked.Name, Plain(target));
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

LONG InterlockedExchangeAdd(LONG volatile* addend, LONG value) {
  EnterKernelCall(kInterlocked, Plain(addend));
  const PreemptionBehind behind(kInterlocked.Name, Plain(addend));
  return __atomic_fetch_add(addend, value, __ATOMIC_SEQ_CST);
}

LONG InterlockedCompareExchange(LONG volatile* target, LONG value, LONG comparand) {
  EnterKernelCall(kInterlocked, Plain(target));
  const PreemptionBehind behind(kInterlocked.Name, Plain(target));
  __atomic_compare_exchange_n(target, &comparand, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
  return comparand;
}
