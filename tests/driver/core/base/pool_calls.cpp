#include "tests/driver/core/base/pool_calls.h"

namespace lidcam::test {
namespace {

PoolCalls* g_calls = nullptr;

}  // namespace

PoolCalls::PoolCalls(std::function<void()> onAllocation) : onAllocation_(std::move(onAllocation)) {
  g_calls = this;
}

PoolCalls::~PoolCalls() {
  g_calls = nullptr;
}

void PoolCalls::Add(const Allocation& allocation) {
  if (onAllocation_) onAllocation_();
  allocations_.push_back(allocation);
}

}  // namespace lidcam::test

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

PVOID NTAPI __real_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag) {
  if (lidcam::test::g_calls != nullptr) lidcam::test::g_calls->Add({type, size, tag});
  return __real_ExAllocatePoolWithTag(type, size, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
