#pragma once

namespace lidcam::host {

/// During its lifetime, a kernel call of the calling thread that allocates memory or may wait is a
/// violation: to show that a path does neither. Taking a spin lock is no wait, nor is a wait with a
/// time limit of 0. Scopes nest.
class NoAllocationScope {
 public:
  /// @param path  for the report, as "the packet path"; kept by its address
  explicit NoAllocationScope(const char* path);
  NoAllocationScope(const NoAllocationScope&) = delete;
  NoAllocationScope& operator=(const NoAllocationScope&) = delete;
  ~NoAllocationScope();

 private:
  const char* const before_;
};

/// During its lifetime, every completion routine runs in a NoAllocationScope, in all threads.
class NoAllocationInCompletions {
 public:
  NoAllocationInCompletions();
  NoAllocationInCompletions(const NoAllocationInCompletions&) = delete;
  NoAllocationInCompletions& operator=(const NoAllocationInCompletions&) = delete;
  ~NoAllocationInCompletions();
};

/// Used by the I/O manager around a completion routine.
class CompletionScope {
 public:
  CompletionScope();
  CompletionScope(const CompletionScope&) = delete;
  CompletionScope& operator=(const CompletionScope&) = delete;
  ~CompletionScope();

  /// Completion routines that have not returned, in all threads.
  [[nodiscard]] static int Count();

 private:
  const char* const before_;
};

}  // namespace lidcam::host
