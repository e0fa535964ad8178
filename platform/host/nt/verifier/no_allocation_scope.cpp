#include "platform/host/nt/verifier/no_allocation_scope.h"

#include <atomic>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {
namespace {

std::atomic<int>& CompletionBans() {
  static std::atomic<int> bans{0};
  return bans;
}

constinit std::atomic<int> g_completionRoutines{0};

const char* Enter(const char* path) {
  Thread& self = CurrentThread();
  const char* const before = self.AllocationFreePath;
  if (path != nullptr) self.AllocationFreePath = path;
  return before;
}

void Leave(const char* before) {
  CurrentThread().AllocationFreePath = before;
}

}  // namespace

NoAllocationScope::NoAllocationScope(const char* path) : before_(Enter(path)) {}

NoAllocationScope::~NoAllocationScope() {
  Leave(before_);
}

NoAllocationInCompletions::NoAllocationInCompletions() {
  ++CompletionBans();
}

NoAllocationInCompletions::~NoAllocationInCompletions() {
  --CompletionBans();
}

CompletionScope::CompletionScope()
    : before_(Enter(CompletionBans() != 0 ? "a completion routine" : nullptr)) {
  ++g_completionRoutines;
}

int CompletionScope::Count() {
  return g_completionRoutines;
}

CompletionScope::~CompletionScope() {
  --g_completionRoutines;
  Leave(before_);
}

}  // namespace lidcam::host
